#include "finalize/uninstall_registration.h"

// The host has no registry: the entry can neither be read nor written.
QString UninstallRegistration::keyPath()
{
    return {};
}

bool UninstallRegistration::read(QList<Value> *, bool *)
{
    return false;
}

bool UninstallRegistration::capture(QString *error)
{
    if (error)
        *error = QStringLiteral("There is no registry on this system.");
    return false;
}

bool UninstallRegistration::write(const QString &, const QString &, QString *error)
{
    if (error)
        *error = QStringLiteral("There is no registry on this system.");
    return false;
}

bool UninstallRegistration::restore(QString *)
{
    return true;
}

long UninstallRegistration::retireMachineEntry(const QString &, const QString &)
{
    return 0;
}
