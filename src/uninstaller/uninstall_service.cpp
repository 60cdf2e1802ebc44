#include "uninstall_service.h"
#include "system/product_processes.h"
#include "system/service_control_win.h"
#include "system/tree_removal.h"

#include <windows.h>

#include <vector>

namespace {

const wchar_t serviceName[] = L"BrisaLinkerMaintenance";

struct ServiceHandle
{
    SC_HANDLE handle = nullptr;
    ~ServiceHandle()
    {
        if (handle)
            CloseServiceHandle(handle);
    }
};

// The program of a command line such as "\"C:\...\bl-maintenance.exe\" --service".
std::wstring programOf(const std::wstring &command)
{
    if (!command.empty() && command.front() == L'"') {
        const size_t end = command.find(L'"', 1);
        return end == std::wstring::npos ? std::wstring() : command.substr(1, end - 1);
    }
    return command.substr(0, command.find(L' '));
}

bool ours(SC_HANDLE service, const std::wstring &installDirectory)
{
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    auto *config = reinterpret_cast<QUERY_SERVICE_CONFIGW *>(buffer.data());
    if (!size || !QueryServiceConfigW(service, config, size, &size) || !config->lpBinaryPathName)
        return false;
    const std::wstring folder = ProductProcesses::normalizedWindowsPath(installDirectory + L"\\WinServices") + L"\\";
    return ProductProcesses::normalizedWindowsPath(programOf(config->lpBinaryPathName)).rfind(folder, 0) == 0;
}

} // namespace

bool maintenanceServiceBelongsTo(const std::wstring &installDirectory)
{
    ServiceHandle manager { OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT) };
    ServiceHandle service { manager.handle ? OpenServiceW(manager.handle, serviceName, SERVICE_QUERY_CONFIG) : nullptr };
    return service.handle && ours(service.handle, installDirectory);
}

bool removeMaintenanceService(const std::wstring &installDirectory, int timeoutMs)
{
    bool removed = true;
    ServiceHandle manager { OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT) };
    ServiceHandle service { manager.handle ? OpenServiceW(manager.handle, serviceName,
                                                          SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS | SERVICE_STOP | DELETE)
                                           : nullptr };
    if (!service.handle && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
        removed = false; // there may be one, but we may not touch it
    if (service.handle && ours(service.handle, installDirectory)) {
        // A service that does not stop keeps its program open: its folder cannot go, but the
        // service is still marked for deletion so that it does not start again.
        removed = ServiceControl::stop(service.handle, timeoutMs) == ServiceControl::StopResult::Stopped;
        if (!DeleteService(service.handle) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE)
            removed = false;
    }
    const std::wstring folder = installDirectory + L"\\WinServices";
    // A link standing there is removed as itself, never entered.
    if (GetFileAttributesW(folder.c_str()) != INVALID_FILE_ATTRIBUTES && !TreeRemoval::removeTree(folder))
        removed = false;
    return removed;
}
