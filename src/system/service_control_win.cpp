#include "system/service_control_win.h"

#include <algorithm>
#include <chrono>

namespace ServiceControl {

namespace {

using Clock = std::chrono::steady_clock;

DWORD remainingMs(Clock::time_point until)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    return DWORD(std::max<long long>(left, 0));
}

} // namespace

DWORD currentState(SC_HANDLE service)
{
    SERVICE_STATUS status {};
    return QueryServiceStatus(service, &status) ? status.dwCurrentState : 0;
}

DWORD waitWhilePending(SC_HANDLE service, DWORD pending, int timeoutMs)
{
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    DWORD state = currentState(service);
    while (state == pending && remainingMs(until) > 0) {
        Sleep(100);
        state = currentState(service);
    }
    return state;
}

StopResult stop(SC_HANDLE service, int timeoutMs)
{
    SERVICE_STATUS_PROCESS running {};
    DWORD size = 0;
    if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE *>(&running), sizeof(running), &size))
        return StopResult::QueryFailed;
    if (running.dwCurrentState == SERVICE_STOPPED)
        return StopResult::Stopped;
    const HANDLE process = running.dwProcessId ? OpenProcess(SYNCHRONIZE, FALSE, running.dwProcessId) : nullptr;
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    SERVICE_STATUS status {};
    StopResult result = StopResult::Stopped;
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status) && GetLastError() != ERROR_SERVICE_NOT_ACTIVE)
        result = StopResult::ControlFailed;
    else if (waitWhilePending(service, SERVICE_STOP_PENDING, timeoutMs) != SERVICE_STOPPED
             || (process && WaitForSingleObject(process, remainingMs(until)) != WAIT_OBJECT_0))
        result = StopResult::TimedOut;
    const DWORD error = GetLastError();
    if (process)
        CloseHandle(process);
    SetLastError(error);
    return result;
}

} // namespace ServiceControl
