#include "finalize/thread_exit_order.h"

#include <cxxabi.h>

namespace ThreadExitOrder {

namespace {

bool destructorsKeyFirst = false;

void nothingToDestroy(void *)
{
}

// Priority 101 runs before every ordinary static initialiser, so before anything in the program
// or in Qt touches a thread-local variable and so makes libgcc create its storage key.
// Registering a (no-op) thread-exit destructor makes libstdc++ create its key now, first.
__attribute__((constructor(101))) void createDestructorsKeyFirst()
{
    destructorsKeyFirst = __cxxabiv1::__cxa_thread_atexit(nothingToDestroy, nullptr, nullptr) == 0;
}

} // namespace

bool arranged()
{
    return destructorsKeyFirst;
}

} // namespace ThreadExitOrder
