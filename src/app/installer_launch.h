#pragma once

#include <QString>
#include <QStringList>

// The installer's command line as one record, and back again for the elevated re-launch.
namespace InstallerLaunch {

struct Options
{
    QString installerSource;
    QString installDirectory;
    QString legacySourceDirectory;
    QString legacyCallerExe;
    QString errorText;
    bool update = false;
    bool silent = false;
    bool automaticUpdate = false;
    bool manualFallback = false;
};

// Parses the full argument list (the first entry is the program and is skipped). Never fails
// hard: a bad command line gives a record whose errorText is set.
Options parse(const QStringList &arguments);

// The argument list (without the program) for the elevated copy of this process.
QStringList elevationArguments(const QStringList &arguments, const Options &options);

} // namespace InstallerLaunch
