#include "peak_memory.h"

#include <windows.h>
#include <psapi.h>

qint64 peakMemoryKib()
{
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters)))
        return 0;
    return qint64(counters.PeakWorkingSetSize / 1024);
}
