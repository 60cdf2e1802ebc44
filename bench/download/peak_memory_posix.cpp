#include "peak_memory.h"

#include <sys/resource.h>

qint64 peakMemoryKib()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}
