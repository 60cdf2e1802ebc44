// Runs a real finalization, or the recovery the next start begins with, and dies on the spot at
// a chosen change to the disk or the registry, as a killed process would: no clean-up, no flush.
//   finalization_crash_child install <root> <staging> <steps file> <die at> <cancel at>
//   finalization_crash_child recover <root> <steps file> <die at>
// "die at" 0 runs to the end; the steps file then names every change in order.
// Exit codes: 0 installed or recovered, 3 failed and rolled back, 1 anything else.
#include "finalize/installer_finalizer.h"
#include "journal/overlay_transaction.h"
#include "support/crash_child_exit.h"
#include "system/change_steps.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QFile>

#include <cstdio>

namespace {

int passedSteps = 0;
int dieAt = 0;
int cancelAt = 0;
FILE *stepsFile = nullptr;
InstallerFinalizer *finalizer = nullptr;

void onStep(const char *step)
{
    ++passedSteps;
    std::fprintf(stepsFile, "%s\n", step);
    std::fflush(stepsFile);
    if (passedSteps == cancelAt)
        finalizer->requestCancel();
    if (passedSteps == dieAt)
        CrashChild::dieNow();
}

int install(QCoreApplication &app, const QString &root, const QString &staging)
{
    QStringList files;
    QStringList directories;
    for (QDirIterator it(staging, QDir::AllEntries | QDir::NoDotAndDotDot, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        (it.fileInfo().isDir() ? directories : files).append(QDir(staging).relativeFilePath(path));
    }
    // In a fixed order, as an archive lists them, so every run writes the same uninstall list.
    files.sort();
    directories.sort();
    InstallerFinalizer run;
    finalizer = &run;
    int result = 1;
    QObject::connect(&run, &InstallerFinalizer::completed, &app, [&] { result = 0; app.quit(); });
    QObject::connect(&run, &InstallerFinalizer::failed, &app, [&] { result = 3; app.quit(); });
    run.finalize(staging, root, QStringLiteral("1.5.0"), files, directories, QString());
    app.exec();
    return result;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const bool installing = arguments.value(1) == QLatin1String("install");
    if (arguments.size() != (installing ? 7 : 5))
        return 2;
    const int first = installing ? 4 : 3;
    stepsFile = std::fopen(QFile::encodeName(arguments.at(first)).constData(), "w");
    dieAt = arguments.at(first + 1).toInt();
    cancelAt = installing ? arguments.at(first + 2).toInt() : 0;
    ChangeSteps::setObserver(onStep);
    const int result = installing ? install(app, arguments.at(2), arguments.at(3)) : (OverlayTransaction::recover(arguments.at(2)) ? 0 : 1);
    std::fclose(stepsFile);
    return result;
}
