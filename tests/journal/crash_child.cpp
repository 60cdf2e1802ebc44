// Runs the file part of an installation, or a recovery, and dies on the spot at a chosen disk
// change, as a crash or a killed process would: no clean-up, no destructors, no flush.
//   journal_crash_child install <root> <stage> <steps file> <die at> <cancel after>
//   journal_crash_child recover <root> <steps file> <die at>
// "die at" 0 runs to the end; the steps file then names every disk change in order.
// Exit codes: 0 installed or recovered, 3 rolled back after a cancel, 1 anything else.
#include "crash_child_exit.h"
#include "finalize/in_place_install.h"
#include "journal/disk_steps.h"
#include "journal/overlay_transaction.h"

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

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const bool installing = arguments.value(1) == QLatin1String("install");
    const int first = installing ? 4 : 3;
    if (arguments.size() != (installing ? 7 : 5))
        return 2;
    const QByteArray stepsPath = QFile::encodeName(arguments.at(first));
    stepsFile = std::fopen(stepsPath.constData(), "w");
    dieAt = arguments.at(first + 1).toInt();
    cancelAfter = installing ? arguments.at(first + 2).toInt() : 0;
    DiskSteps::setObserver(onStep);
    const int result = installing ? install(arguments.at(2), arguments.at(3)) : (OverlayTransaction::recover(arguments.at(2)) ? 0 : 1);
    if (stepsFile)
        std::fclose(stepsFile);
    return result;
}
