#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// One run of a crash child, a process that dies on the spot at a chosen change and writes each
// change it passed, one per line, to a steps file; and what it did.
struct ChildRun
{
    bool finished = false;
    bool died = false; // killed: a signal on the host, the forced exit code under Windows
    int exitCode = -1;
    QString error; // empty unless QProcess reported one (failed to start, timed out)
    qint64 elapsedMs = 0;
    QStringList steps;
};

// An empty environment leaves the child this process's own.
ChildRun runCrashChild(const QString &program, const QStringList &arguments, const QString &stepsPath,
                       const QProcessEnvironment &environment = {});
