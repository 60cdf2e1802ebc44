#pragma once

#include <QString>
#include <QStringList>

// One run of journal_crash_child and what it did.
struct ChildRun
{
    bool finished = false;
    bool died = false;
    int exitCode = -1;
    QString error; // empty unless QProcess reported one (failed to start, timed out)
    qint64 elapsedMs = 0;
    QStringList steps;
};

ChildRun runChild(const QStringList &arguments, const QString &stepsPath);
// What a child run did, for a failure message: whether it ended, how, and how far it got.
QString described(const ChildRun &run);
