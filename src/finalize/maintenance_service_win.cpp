#include "finalize/maintenance_service.h"
#include "system/file_links.h"
#include "system/handles_win.h"
#include "system/service_control_win.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>

#include <memory>
#include <vector>

#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

namespace {

struct ServiceCloser
{
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using UniqueService = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, ServiceCloser>;

const wchar_t *const serviceName = L"BrisaLinkerMaintenance";
const wchar_t *const displayName = L"Brisa-Linker Maintenance";
const wchar_t *const description = L"Applies Brisa-Linker's firewall rules for the programs its installer named.";
// SYSTEM and Administrators full control, Users read and execute; nothing inherited from the
// product directory, whose users may modify it.
const wchar_t *const protectedFolder = L"D:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";

bool fail(QString *error, const QString &text, DWORD windowsError = GetLastError())
{
    if (error)
        *error = windowsError ? QStringLiteral("%1: Windows=%2").arg(text).arg(windowsError) : text;
    return false;
}

QString program(const QString &serviceDir)
{
    return serviceDir + QStringLiteral("/bl-maintenance.exe");
}

QString policy(const QString &serviceDir)
{
    return serviceDir + QStringLiteral("/policy.ini");
}

QString previous(const QString &path)
{
    return path + QStringLiteral(".previous");
}

bool moveFile(const QString &from, const QString &to)
{
    return MoveFileExW(wideChars(QDir::toNativeSeparators(from)), wideChars(QDir::toNativeSeparators(to)),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

bool protectFolder(const QString &folder, QString *error)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(protectedFolder, SDDL_REVISION_1, &descriptor, nullptr))
        return fail(error, QStringLiteral("Unable to build the service folder's access list"));
    const UniqueLocal<void> owned(descriptor);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
    // Set on the folder and on what is in it already; what is made later inherits it.
    QStringList paths { folder };
    for (const QFileInfo &entry : QDir(folder).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
        paths << entry.filePath();
    for (const QString &path : paths) {
        if (FileLinks::isLink(path))
            return fail(error, QStringLiteral("The service folder holds a link: %1").arg(QDir::toNativeSeparators(path)), 0);
        std::wstring native = QDir::toNativeSeparators(path).toStdWString();
        const DWORD result = SetNamedSecurityInfoW(native.data(), SE_FILE_OBJECT,
                                                   DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr, nullptr, list, nullptr);
        if (result != ERROR_SUCCESS)
            return fail(error, QStringLiteral("Unable to protect %1").arg(QDir::toNativeSeparators(path)), result);
    }
    return true;
}

bool stopService(SC_HANDLE service, int timeoutMs, QString *error)
{
    switch (ServiceControl::stop(service, timeoutMs)) {
    case ServiceControl::StopResult::Stopped:
        return true;
    case ServiceControl::StopResult::QueryFailed:
        return fail(error, QStringLiteral("Unable to query the maintenance service"));
    case ServiceControl::StopResult::ControlFailed:
        return fail(error, QStringLiteral("Unable to stop the maintenance service"));
    case ServiceControl::StopResult::TimedOut:
        break;
    }
    return fail(error, QStringLiteral("The maintenance service did not stop within %1 ms").arg(timeoutMs), 0);
}

bool startService(SC_HANDLE service, int timeoutMs, QString *error)
{
    if (!StartServiceW(service, 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING)
        return fail(error, QStringLiteral("Unable to start the maintenance service"));
    const DWORD state = ServiceControl::waitWhilePending(service, SERVICE_START_PENDING, timeoutMs);
    if (state == SERVICE_RUNNING)
        return true;
    SERVICE_STATUS status {};
    QueryServiceStatus(service, &status);
    if (state == SERVICE_START_PENDING)
        return fail(error, QStringLiteral("The maintenance service did not start within %1 ms").arg(timeoutMs), 0);
    return fail(error, QStringLiteral("The maintenance service stopped at its start"), status.dwWin32ExitCode);
}

void recordConfiguration(SC_HANDLE service, MaintenanceSetupState *state)
{
    DWORD size = 0;
    QueryServiceConfigW(service, nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    auto *config = reinterpret_cast<QUERY_SERVICE_CONFIGW *>(buffer.data());
    if (size && QueryServiceConfigW(service, config, size, &size)) {
        state->serviceType = config->dwServiceType;
        state->startType = config->dwStartType;
        state->errorControl = config->dwErrorControl;
        state->binaryPath = QString::fromWCharArray(config->lpBinaryPathName);
        state->account = QString::fromWCharArray(config->lpServiceStartName ? config->lpServiceStartName : L"");
        state->displayName = QString::fromWCharArray(config->lpDisplayName ? config->lpDisplayName : L"");
    }
    size = 0;
    QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, nullptr, 0, &size);
    buffer.assign(size, 0);
    if (size && QueryServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, buffer.data(), size, &size)) {
        const auto *text = reinterpret_cast<SERVICE_DESCRIPTIONW *>(buffer.data())->lpDescription;
        state->description = QString::fromWCharArray(text ? text : L"");
    }
    size = 0;
    QueryServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, nullptr, 0, &size);
    buffer.assign(size, 0);
    if (size && QueryServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, buffer.data(), size, &size)) {
        const auto *actions = reinterpret_cast<SERVICE_FAILURE_ACTIONSW *>(buffer.data());
        state->failureResetSeconds = actions->dwResetPeriod;
        for (DWORD i = 0; i < actions->cActions; ++i)
            state->failureActions.append({ int(actions->lpsaActions[i].Type), actions->lpsaActions[i].Delay });
    }
    state->wasRunning = ServiceControl::currentState(service) == SERVICE_RUNNING;
}

bool describe(SC_HANDLE service, const QString &text, quint32 resetSeconds, const QList<MaintenanceSetupState::FailureAction> &actions,
              QString *error)
{
    std::wstring descriptionText = text.toStdWString();
    SERVICE_DESCRIPTIONW serviceDescription { descriptionText.data() };
    // One spare entry: an empty list must still be passed, or the former actions would stay.
    std::vector<SC_ACTION> list(1);
    for (const MaintenanceSetupState::FailureAction &action : actions)
        list.insert(list.end() - 1, { SC_ACTION_TYPE(action.type), action.delayMs });
    SERVICE_FAILURE_ACTIONSW failure { resetSeconds, nullptr, nullptr, DWORD(actions.size()), list.data() };
    if (!ChangeServiceConfig2W(service, SERVICE_CONFIG_DESCRIPTION, &serviceDescription)
        || !ChangeServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, &failure))
        return fail(error, QStringLiteral("Unable to describe the maintenance service"));
    return true;
}

bool configure(SC_HANDLE manager, UniqueService *service, const QString &binary, QString *error)
{
    // Always quoted: a path with blanks must never be read as a shorter program's path.
    const std::wstring command = QStringLiteral("\"%1\" --service").arg(QDir::toNativeSeparators(binary)).toStdWString();
    if (*service) {
        if (!ChangeServiceConfigW(service->get(), SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, command.c_str(),
                                  nullptr, nullptr, nullptr, L"LocalSystem", L"", displayName))
            return fail(error, QStringLiteral("Unable to change the maintenance service"));
    } else {
        service->reset(CreateServiceW(manager, serviceName, displayName, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                      SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        if (!*service)
            return fail(error, QStringLiteral("Unable to create the maintenance service"));
    }
    // Restart after 5 s on the first two failures, then leave it; the count resets after a day.
    const QList<MaintenanceSetupState::FailureAction> restarts { { SC_ACTION_RESTART, 5000 }, { SC_ACTION_RESTART, 5000 }, { SC_ACTION_NONE, 0 } };
    return describe(service->get(), QString::fromWCharArray(description), 86400, restarts, error);
}

QString packageVersion(const QString &installDir)
{
    const QSettings file(installDir + QStringLiteral("/cfgdata/version.ini"), QSettings::IniFormat);
    return file.value(QStringLiteral("release/version")).toString();
}

bool verifyStatus(const QString &binary, const QString &version, const QByteArray &policyContent, QString *error)
{
    QProcess status;
    status.start(binary, { QStringLiteral("--status") });
    if (!status.waitForFinished(maintenanceStatusTimeoutMs)) {
        status.kill();
        status.waitForFinished(1000);
        return fail(error, QStringLiteral("The maintenance service's status did not come within %1 ms").arg(maintenanceStatusTimeoutMs), 0);
    }
    return MaintenancePolicy::statusMatches(status.readAllStandardOutput(), version, policyContent, error);
}

bool openManager(UniqueService *manager, QString *error)
{
    manager->reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    return *manager || fail(error, QStringLiteral("Unable to open the service control manager"));
}

} // namespace

bool setupMaintenanceService(const QString &installDir, const QString &servicePayload, MaintenanceSetupState *state, QString *error)
{
    const QString folder = QFileInfo(servicePayload).path();
    state->serviceDir = folder + QStringLiteral("/service");
    const QString version = packageVersion(installDir);
    if (!QFileInfo(servicePayload).isFile() || FileLinks::pathHasLink(servicePayload))
        return fail(error, QStringLiteral("The maintenance service's program is missing: %1").arg(QDir::toNativeSeparators(servicePayload)), 0);
    if (version.isEmpty())
        return fail(error, QStringLiteral("The package's version is unknown."), 0);
    QString composeError;
    const QByteArray policyContent = MaintenancePolicy::compose(installDir, &composeError);
    if (policyContent.isEmpty())
        return fail(error, composeError, 0);
    if (!QDir().mkpath(state->serviceDir) || FileLinks::pathHasLink(state->serviceDir))
        return fail(error, QStringLiteral("Unable to make the service folder: %1").arg(QDir::toNativeSeparators(state->serviceDir)), 0);
    if (!protectFolder(folder, error) || !protectFolder(state->serviceDir, error))
        return false;

    UniqueService manager;
    if (!openManager(&manager, error))
        return false;
    UniqueService service(OpenServiceW(manager.get(), serviceName, SERVICE_ALL_ACCESS));
    if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
        return fail(error, QStringLiteral("Unable to open the maintenance service"));
    state->serviceExisted = bool(service);
    if (service) {
        recordConfiguration(service.get(), state);
        state->changed = true; // a stopped service is restarted by the rollback
        if (!stopService(service.get(), state->timeoutMs, error))
            return false;
    }

    // Set aside in the same folder, nothing copied: the rollback renames them back.
    state->changed = true;
    const QString binary = program(state->serviceDir);
    if (QFileInfo(binary).isFile() && !(state->programSetAside = moveFile(binary, previous(binary))))
        return fail(error, QStringLiteral("Unable to set the former service program aside"));
    if (QFileInfo(policy(state->serviceDir)).isFile() && !(state->policySetAside = moveFile(policy(state->serviceDir), previous(policy(state->serviceDir)))))
        return fail(error, QStringLiteral("Unable to set the former service policy aside"));
    if (!CopyFileW(wideChars(QDir::toNativeSeparators(servicePayload)), wideChars(QDir::toNativeSeparators(binary)), TRUE))
        return fail(error, QStringLiteral("Unable to copy the service program"));
    if (!MaintenancePolicy::write(policy(state->serviceDir), policyContent, error))
        return false;
    if (!configure(manager.get(), &service, binary, error) || !startService(service.get(), state->timeoutMs, error)
        || !verifyStatus(binary, version, policyContent, error))
        return false;

    if (state->programSetAside)
        QFile::remove(previous(binary));
    if (state->policySetAside)
        QFile::remove(previous(policy(state->serviceDir)));
    return true;
}

bool rollbackMaintenanceService(const MaintenanceSetupState &state, QString *error)
{
    if (!state.changed)
        return true;
    QString first;
    auto note = [&first](const QString &text) {
        if (first.isEmpty())
            first = text;
    };
    QString detail;
    UniqueService manager;
    if (!openManager(&manager, &detail)) {
        if (error)
            *error = detail;
        return false;
    }
    UniqueService service(OpenServiceW(manager.get(), serviceName, SERVICE_ALL_ACCESS));
    // The new program must not run while the former one is put back.
    if (service && !stopService(service.get(), state.timeoutMs, &detail))
        note(detail);
    const QString binary = program(state.serviceDir);
    const QString policyFile = policy(state.serviceDir);
    if (state.programSetAside && !moveFile(previous(binary), binary))
        note(QStringLiteral("Unable to restore the former service program: Windows=%1").arg(GetLastError()));
    if (state.policySetAside && !moveFile(previous(policyFile), policyFile))
        note(QStringLiteral("Unable to restore the former service policy: Windows=%1").arg(GetLastError()));

    if (!state.serviceExisted) {
        if (service && !DeleteService(service.get()) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE)
            note(QStringLiteral("Unable to remove the maintenance service: Windows=%1").arg(GetLastError()));
        if (!state.programSetAside && !state.policySetAside && QFileInfo::exists(state.serviceDir) && !FileLinks::removeTree(state.serviceDir))
            note(QStringLiteral("Unable to remove the service folder: %1").arg(QDir::toNativeSeparators(state.serviceDir)));
    } else if (service) {
        const std::wstring command = state.binaryPath.toStdWString();
        const std::wstring account = state.account.toStdWString();
        const std::wstring name = state.displayName.toStdWString();
        if (!ChangeServiceConfigW(service.get(), state.serviceType, state.startType, state.errorControl, command.c_str(), nullptr, nullptr,
                                  nullptr, account.c_str(), nullptr, name.c_str()))
            note(QStringLiteral("Unable to restore the maintenance service's configuration: Windows=%1").arg(GetLastError()));
        if (!describe(service.get(), state.description, state.failureResetSeconds, state.failureActions, &detail))
            note(detail);
        if (state.wasRunning && !startService(service.get(), state.timeoutMs, &detail))
            note(detail);
    } else {
        note(QStringLiteral("The former maintenance service is gone."));
    }
    if (!first.isEmpty() && error)
        *error = first;
    return first.isEmpty();
}
