#include "finalize/thread_exit_order.h"

namespace ThreadExitOrder {

// glibc has native thread-local storage and destroys its objects before releasing it.
bool arranged()
{
    return true;
}

} // namespace ThreadExitOrder
