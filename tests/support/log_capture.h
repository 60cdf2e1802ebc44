#pragma once

// The installer log lines written from the moment a LogCapture is made: tests assert the exact
// lines an operation logs, read back from today's log file as the installer wrote it.

#include "app/app_paths.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QStringList>

class LogCapture
{
public:
    LogCapture()
        : m_start(QFile(path()).size())
    {
    }

    // Each message without its time stamp.
    QStringList lines() const
    {
        QFile file(path());
        if (!file.open(QIODevice::ReadOnly) || !file.seek(m_start))
            return {};
        QStringList messages;
        for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            const qsizetype at = line.indexOf(QLatin1String("  "));
            messages << (at >= 0 ? line.mid(at + 2) : line).trimmed();
        }
        return messages;
    }

private:
    static QString path()
    {
        return QDir(AppPaths::installerLogRoot())
            .filePath(QStringLiteral("installer-%1.log").arg(QDate::currentDate().toString(QStringLiteral("yyyyMMdd"))));
    }

    qint64 m_start;
};
