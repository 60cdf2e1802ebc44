#include "support/crash_child_run.h"

#include "support/test_files.h"

#include <QElapsedTimer>
#include <QProcess>

ChildRun runCrashChild(const QString &program, const QStringList &arguments, const QString &stepsPath,
                       const QProcessEnvironment &environment)
{
    ChildRun run;
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    if (!environment.isEmpty())
        child.setProcessEnvironment(environment);
    QElapsedTimer clock;
    clock.start();
    child.start(program, arguments);
    run.finished = child.waitForFinished(120000);
    run.elapsedMs = clock.elapsed();
    if (child.error() != QProcess::UnknownError && child.error() != QProcess::Crashed)
        run.error = child.errorString();
    run.died = child.exitStatus() == QProcess::CrashExit || child.exitCode() == 137;
    run.exitCode = child.exitCode();
    for (const QByteArray &line : TestFiles::read(stepsPath).split('\n')) {
        if (!line.trimmed().isEmpty())
            run.steps.append(QString::fromLatin1(line.trimmed())); // "\r\n" under Windows
    }
    return run;
}
