// Runs the file part of an installation, or a recovery, and dies on the spot at a chosen disk
// change, as a crash or a killed process would: no clean-up, no destructors, no flush.
//   journal_crash_child install <root> <stage> <steps file> <die at> <cancel after>
//   journal_crash_child recover <root> <steps file> <die at>
//   journal_crash_child migrate <source root> <steps file> <die at> <cancel after>
//   journal_crash_child recover-migration <source root> <steps file> <die at>
// "die at" 0 runs to the end; the steps file then names every disk change in order. A migration
// goes into <source root>/BrisaLinker from the stage beside it, as the pipeline runs one, clean-up
// included; its recovery is what the next installer run does first and last.
// Exit codes: 0 installed or recovered, 3 rolled back after a cancel, 1 anything else.
#include "support/crash_child_exit.h"
#include "finalize/in_place_install.h"
#include "system/change_steps.h"
#include "journal/legacy_migration.h"
#include "journal/overlay_transaction.h"
#include "system/user_registry.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include <atomic>
#include <cstdio>

namespace {

std::atomic<bool> cancelRequested { false };
int passedSteps = 0;
int dieAt = 0;
int cancelAfter = 0;
FILE *stepsFile = nullptr;

void onStep(const char *step)
{
    ++passedSteps;
    if (stepsFile) {
        std::fprintf(stepsFile, "%s\n", step);
        std::fflush(stepsFile);
    }
    if (passedSteps == cancelAfter)
        cancelRequested.store(true);
    if (passedSteps == dieAt)
        CrashChild::dieNow();
}

int install(const QString &root, const QString &stage)
{
    if (!OverlayTransaction::recover(root))
        return 1;
    OverlayTransaction::State state;
    if (!OverlayTransaction::begin(root, stage, &state))
        return 1;
    const QString backup = state.record.value(QStringLiteral("backup")).toString();
    InPlaceInstall::OverlayState overlay;
    // As the pipeline does: a failure or a cancel up to the commit point undoes everything.
    const bool installed = InPlaceInstall::installStagedFilesInPlace(stage, root, backup, &overlay, &cancelRequested)
        && OverlayTransaction::metadataStarted(&state) && !cancelRequested.load();
    if (!installed) {
        InPlaceInstall::rollbackStagedFiles(stage, root, backup, overlay);
        return OverlayTransaction::rollback(&state) ? 3 : 1;
    }
    if (!OverlayTransaction::commit(&state) || !OverlayTransaction::recover(root))
        return 1;
    return 0;
}

// The stand-in for the pipeline's registration step: the user's uninstall entry now names the
// new installation, with a type that must come back exactly on a rollback.
bool registerInstallation(const QString &root)
{
    const QString location = root + QLatin1Char('\0');
    const QByteArray data(reinterpret_cast<const char *>(location.utf16()), location.size() * 2);
    if (UserRegistry::replaceValues(QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker"),
                                    { { QStringLiteral("InstallLocation"), 1, data } }) != 0)
        return false;
    onStep("write registration");
    return true;
}

int migrate(const QString &source)
{
    const QString root = source + QStringLiteral("/BrisaLinker");
    const QString stage = root + QStringLiteral(".installing-7-1");
    const QString backup = root + QStringLiteral(".backup-legacy-0123456789abcdef0123456789abcdef");
    if (!LegacyMigration::recover(root))
        return 1;
    LegacyMigration::State state;
    if (!LegacyMigration::begin(root, stage, backup, &state, nullptr, source))
        return 1;
    InPlaceInstall::OverlayState overlay;
    const bool installed = InPlaceInstall::installStagedFilesInPlace(stage, root, backup, &overlay, &cancelRequested)
        && !cancelRequested.load() && registerInstallation(root) && !cancelRequested.load();
    if (!installed) {
        InPlaceInstall::rollbackStagedFiles(stage, root, backup, overlay);
        return LegacyMigration::rollback(&state) ? 3 : 1;
    }
    if (!LegacyMigration::commit(&state))
        return 1;
    return LegacyMigration::finish(root).complete ? 0 : 1;
}

int recoverMigration(const QString &source)
{
    const QString root = source + QStringLiteral("/BrisaLinker");
    return LegacyMigration::recover(root) && LegacyMigration::finish(root).complete ? 0 : 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const QString mode = arguments.value(1);
    const bool installing = mode == QLatin1String("install");
    const bool cancellable = installing || mode == QLatin1String("migrate");
    const int first = installing ? 4 : 3;
    if (arguments.size() != first + (cancellable ? 3 : 2))
        return 2;
    const QByteArray stepsPath = QFile::encodeName(arguments.at(first));
    stepsFile = std::fopen(stepsPath.constData(), "w");
    dieAt = arguments.at(first + 1).toInt();
    cancelAfter = cancellable ? arguments.at(first + 2).toInt() : 0;
    ChangeSteps::setObserver(onStep);
    int result = 2;
    if (installing)
        result = install(arguments.at(2), arguments.at(3));
    else if (mode == QLatin1String("recover"))
        result = OverlayTransaction::recover(arguments.at(2)) ? 0 : 1;
    else if (mode == QLatin1String("migrate"))
        result = migrate(arguments.at(2));
    else if (mode == QLatin1String("recover-migration"))
        result = recoverMigration(arguments.at(2));
    if (stepsFile)
        std::fclose(stepsFile);
    return result;
}
