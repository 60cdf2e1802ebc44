#include "app/installer_launch.h"
#include "app/installer_logger.h"
#include "journal/overlay_transaction.h"
#include "location/installation_identity.h"
#include "location/installation_location.h"
#include "location/legacy_update_location.h"

#include <QDir>
#include <QFileInfo>

namespace InstallerLaunch {

namespace {

const QString updateOption = QStringLiteral("--update");
const QString installDirOption = QStringLiteral("--install-dir");
const QString installerSourceOption = QStringLiteral("--installer-source");
const QString legacySourceOption = QStringLiteral("--legacy-source-dir");
const QString legacyCallerOption = QStringLiteral("--legacy-caller-exe");
const QString legacyManualOption = QStringLiteral("--legacy-manual-fallback");
const QString updateManualOption = QStringLiteral("--update-manual-fallback");

struct Seen
{
    bool installDir = false;
    bool installerSource = false;
    bool legacySource = false;
    bool legacyCaller = false;
    bool legacyManual = false;
    bool updateManual = false;
};

// Returns the reason the update target is refused, or an empty text when it is accepted. Every
// accepted target is an application directory itself: the window installs into exactly that
// directory, where any other would silently become a new installation in a subdirectory of it.
QString targetRefusal(const Options &options)
{
    const QString directory = options.installDirectory;
    const bool application = InstallationLocation::isApplicationDirectory(directory);
    if (!options.silent) {
        // An installation whose own interrupted transaction is waiting for recovery may not look
        // like an installation at all; its journal vouches for it.
        if (QFileInfo::exists(OverlayTransaction::path(directory))) {
            OverlayTransaction::State state;
            if (OverlayTransaction::load(directory, &state))
                return {};
        }
        if (application && InstallationLocation::automaticUpdateDirectory(directory))
            return {};
        return QStringLiteral("The update directory could not be verified as an installed Launcher version.");
    }
    if (!options.legacySourceDirectory.isEmpty()) {
        if (application && LegacyUpdateLocation::validSourceTarget(options.legacySourceDirectory, directory))
            return {};
        return QStringLiteral("The previous installation or its destination could not be verified.");
    }
    if (!application || !InstallationLocation::hasNoDirectoryLinks(directory)
        || !QFileInfo(directory).isDir()) {
        return QStringLiteral("The update installation directory is invalid or does not exist.");
    }
    const int kind = InstallationIdentity::installation(directory).kind;
    if (kind == InstallationIdentity::ValidExecutable || kind == InstallationIdentity::Launcher
        || QFileInfo::exists(QDir(directory).filePath(QStringLiteral(".legacy-migration.json")))) {
        return {};
    }
    return QStringLiteral("The update installation directory does not contain a readable Brisa-Linker executable.");
}

} // namespace

Options parse(const QStringList &arguments)
{
    Options options;
    if (arguments.size() < 2)
        return options;

    Seen seen;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument.compare(QLatin1String("/verysilent"), Qt::CaseInsensitive) == 0) {
            options.silent = true;
            continue;
        }
        if (argument == updateOption) {
            if (options.update)
                options.errorText = QStringLiteral("Duplicate --update argument.");
            options.update = true;
            continue;
        }
        if (argument == legacyManualOption || argument == updateManualOption) {
            options.manualFallback = true;
            (argument == legacyManualOption ? seen.legacyManual : seen.updateManual) = true;
            continue;
        }

        QString *value = nullptr;
        bool *valueSeen = nullptr;
        if (argument == installDirOption) {
            value = &options.installDirectory;
            valueSeen = &seen.installDir;
        } else if (argument == installerSourceOption) {
            value = &options.installerSource;
            valueSeen = &seen.installerSource;
        } else if (argument == legacySourceOption) {
            value = &options.legacySourceDirectory;
            valueSeen = &seen.legacySource;
        } else if (argument == legacyCallerOption) {
            value = &options.legacyCallerExe;
            valueSeen = &seen.legacyCaller;
        } else {
            continue; // unknown arguments are ignored
        }
        // A value may begin with "-" or "/", but never with "--": that is the next option.
        if (*valueSeen || i + 1 >= arguments.size() || arguments.at(i + 1).startsWith(QLatin1String("--"))) {
            options.errorText = QStringLiteral("Missing or duplicate %1 argument.").arg(argument);
            break;
        }
        *valueSeen = true;
        const QString &given = arguments.at(++i);
        const bool directory = value == &options.installDirectory || value == &options.legacySourceDirectory;
        *value = directory ? InstallationLocation::normalized(given) : given;
    }

    if (options.update != seen.installDir)
        options.errorText = QStringLiteral("Update mode requires both --update and --install-dir.");
    if ((seen.legacyManual && (!options.silent || options.update || seen.updateManual))
        || (seen.updateManual && (options.silent || options.update))) {
        options.errorText = QStringLiteral("Invalid update manual-fallback arguments.");
    }
    if (seen.legacySource && (!options.silent || !options.update || seen.legacyManual || seen.updateManual))
        options.errorText = QStringLiteral("Legacy source requires an explicit legacy update target.");

    if (options.errorText.isEmpty() && options.update) {
        const QString refusal = targetRefusal(options);
        if (!refusal.isEmpty()) {
            // Not an invalid command line: the user is asked to choose the location instead.
            InstallerLogger::write(QStringLiteral("Update target refused: target=%1 reason=%2")
                                       .arg(options.installDirectory, refusal));
            options.update = false;
            options.installDirectory.clear();
            options.legacySourceDirectory.clear();
            options.manualFallback = true;
        }
    }
    return options;
}

QStringList elevationArguments(const QStringList &arguments, const Options &options)
{
    const QStringList original = arguments.mid(1);
    if (options.manualFallback) {
        QStringList rebuilt;
        for (qsizetype i = 0; i < original.size(); ++i) {
            const QString &argument = original.at(i);
            if (argument == updateOption)
                continue;
            if (argument == installDirOption || argument == legacySourceOption) {
                ++i; // and its value
                continue;
            }
            rebuilt << argument;
        }
        const QString fallback = options.silent ? legacyManualOption : updateManualOption;
        if (!rebuilt.contains(fallback))
            rebuilt << fallback;
        return rebuilt;
    }
    if (!(options.silent && options.automaticUpdate))
        return original;

    // A silent update whose target start-up discovered: hand it over explicitly so that the
    // elevated copy does not discover it a second time.
    QStringList result = original;
    if (!original.contains(updateOption))
        result << updateOption << installDirOption << options.installDirectory;
    if (!options.legacySourceDirectory.isEmpty() && !original.contains(legacySourceOption))
        result << legacySourceOption << options.legacySourceDirectory;
    return result;
}

} // namespace InstallerLaunch
