#pragma once

#include "support/test_files.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

// An installation "BrisaLinker" and its staged payload side by side in a temporary directory,
// and the means to prove afterwards, file by file by SHA-256, what the disk holds.
class TreeFixture
{
public:
    using Files = QMap<QString, QByteArray>;

    TreeFixture();

    QString base() const { return m_base.path(); }
    QString root() const { return m_base.path() + QStringLiteral("/BrisaLinker"); }
    QString stage() const { return m_base.path() + QStringLiteral("/BrisaLinker.installing-7-1"); }

    // Writes an installation (none when empty) and a payload.
    bool setUp(const Files &installed, const Files &payload);

    // Relative file path to SHA-256, plus every directory as "<path>/" mapped to "dir".
    static QMap<QString, QString> snapshot(const QString &directory);
    static QMap<QString, QString> expected(const Files &files);
    // The installation after the payload went over it.
    static Files overlaid(const Files &installed, const Files &payload);

    static bool write(const QString &path, const QByteArray &content) { return TestFiles::write(path, content); }
    static QByteArray read(const QString &path) { return TestFiles::read(path); }
    // The backup directory of the record in the root, or empty.
    QString backup() const;
    // Every distinct content under the base directory.
    QStringList contents() const;

    static Files installation();
    // The installation as the real pipeline finds one: its launcher is a real program there, so
    // a stand-in for it is left out.
    static Files installationWithoutLauncher();
    static Files payload();

private:
    QTemporaryDir m_base;
};
