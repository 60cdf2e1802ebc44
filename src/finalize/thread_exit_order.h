#pragma once

// The finalizer's worker, like every thread the installer starts, ends while objects that live
// in thread-local storage (Qt keeps one per thread for its regular expressions) still need their
// destructors. With MinGW those objects sit in storage that libgcc frees through one
// thread-specific key, while libstdc++ runs their destructors through another, and the keys are
// processed in the order they were created. Unless libstdc++'s key comes first, a thread that
// ends destroys objects whose storage is already freed: a crash in the thread's exit handler,
// which Wine swallows while leaving a runtime lock taken, so that the process hangs at exit.
namespace ThreadExitOrder {

// True when the destructors' key was created before any thread-local storage, which is
// arranged before the program's ordinary static initialisation. Always true off Windows.
bool arranged();

} // namespace ThreadExitOrder
