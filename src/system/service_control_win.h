#pragma once

// Stopping a Windows service within a time limit, shared by the installer's maintenance service
// setup and the uninstaller (plain C++, no Qt).

#include <windows.h>

namespace ServiceControl {

// The service's current state, or 0 when it cannot be read.
DWORD currentState(SC_HANDLE service);

// Waits until the service leaves the pending state or the time is up; the state it ended in.
DWORD waitWhilePending(SC_HANDLE service, DWORD pending, int timeoutMs);

enum class StopResult { Stopped, QueryFailed, ControlFailed, TimedOut };

// Asks the service to stop and waits at most timeoutMs. Stopped means its process has ended too:
// until then it holds its program open. On QueryFailed and ControlFailed GetLastError() says why.
StopResult stop(SC_HANDLE service, int timeoutMs);

} // namespace ServiceControl
