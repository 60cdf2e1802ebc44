#include "crash_child_exit.h"

#include <windows.h>

#include <cstdlib>

namespace CrashChild {

void dieNow()
{
    TerminateProcess(GetCurrentProcess(), 137);
    std::abort();
}

} // namespace CrashChild
