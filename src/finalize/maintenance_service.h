#pragma once

#include <QList>
#include <QString>

// The product's maintenance service (docs/maintenance-service.md): installed, replaced, verified
// and, when any of that fails, put back as it was. Both operations are optional for the
// installation: their failures are returned as log texts and never fail it.

inline constexpr const char *maintenanceServiceName = "BrisaLinkerMaintenance";

// How long a service may take to stop or to reach running before that counts as a failure; a
// stopped service's process may still hold its program open, so a slow stop is never ignored.
inline constexpr int maintenanceServiceTimeoutMs = 15000;
// How long the program may take to answer "--status".
inline constexpr int maintenanceStatusTimeoutMs = 10000;

// What setupMaintenanceService replaced, so that rollbackMaintenanceService can put it back.
struct MaintenanceSetupState
{
    struct FailureAction
    {
        int type = 0;
        quint32 delayMs = 0;
    };

    // Input: the time limit for stopping and starting; lower only in tests.
    int timeoutMs = maintenanceServiceTimeoutMs;

    QString serviceDir; // <installDir>/WinServices/service
    bool serviceExisted = false;
    bool wasRunning = false;
    quint32 serviceType = 0;
    quint32 startType = 0;
    quint32 errorControl = 0;
    QString binaryPath;
    QString account;
    QString displayName;
    QString description;
    quint32 failureResetSeconds = 0;
    QList<FailureAction> failureActions;

    bool programSetAside = false; // service/bl-maintenance.exe.previous holds the former program
    bool policySetAside = false; // service/policy.ini.previous holds the former policy
    bool changed = false; // anything was touched that the rollback must undo
};

// installDir: the installation directory. servicePayload: the package's service program as
// installed there ("<installDir>/WinServices/bl-maintenance.exe"). The service runs a copy of it in
// "WinServices/service" beside its "policy.ini". False with *error on any failure; the caller then
// calls rollbackMaintenanceService with the same state.
bool setupMaintenanceService(const QString &installDir, const QString &servicePayload, MaintenanceSetupState *state,
                             QString *error);

// Restores the service's former program, policy and configuration and starts it again if it ran,
// or removes a service that did not exist before. Every part is attempted; false names the first
// that failed.
bool rollbackMaintenanceService(const MaintenanceSetupState &state, QString *error);

namespace MaintenancePolicy {

// The policy file's content for an installation: its directory and the digests of the programs the
// firewall rules may name. Empty when one of them cannot be read.
QByteArray compose(const QString &installDir, QString *error);

// Writes the policy atomically and reads it back; false with *error when the file on disk differs.
bool write(const QString &path, const QByteArray &content, QString *error);

// Whether a "--status" reply names this service, version and policy digest; *error says which
// does not.
bool statusMatches(const QByteArray &reply, const QString &version, const QByteArray &policy, QString *error);

} // namespace MaintenancePolicy
