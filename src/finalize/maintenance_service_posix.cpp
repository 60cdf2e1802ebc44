#include "finalize/maintenance_service.h"

// Services exist on Windows only; elsewhere the installation goes on without one.

bool setupMaintenanceService(const QString &, const QString &, MaintenanceSetupState *, QString *error)
{
    if (error)
        *error = QStringLiteral("The maintenance service exists on Windows only.");
    return false;
}

bool rollbackMaintenanceService(const MaintenanceSetupState &, QString *)
{
    return true;
}
