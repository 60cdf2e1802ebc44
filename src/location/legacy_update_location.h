#pragma once

#include <QList>
#include <QSettings>
#include <QString>

// Where earlier installers and updaters recorded an installation, and which one (if any) an
// automatic update may take over.
namespace LegacyUpdateLocation {

struct Registration
{
    QString path;             // "HKEY_LOCAL_MACHINE\..." or "HKEY_USERS\<SID>\..."
    QSettings::Format format; // the registry view it is read through
};

struct Result
{
    QString source;  // the earlier installation's directory
    QString target;  // InstallationLocation::applicationTarget(source)
    QString message; // for the user when no single location was settled
};

QList<Registration> registrations();
// The program an "UninstallString" command line starts, normalized, or empty.
QString uninstallProgram(const QString &uninstallString);
QString fromCaller(const QString &callerExecutable);
bool validSourceTarget(const QString &source, const QString &target);
Result discover(const QString &callerExecutable, const QString &chosenDirectory,
                const QList<Registration> &registrations);

} // namespace LegacyUpdateLocation
