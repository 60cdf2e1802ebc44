#include "uninstaller/uninstall_data.h"
#include "app/installer_logger.h"
#include "journal/overlay_transaction.h"
#include "system/file_links.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>

#include <algorithm>

namespace UninstallData {

namespace {

const QByteArray magic = QByteArrayLiteral("BRISALINKER_UNINSTALL_V1");
constexpr qint64 largestList = 64 * 1024 * 1024;

bool refused(QString *error, const QString &message)
{
    InstallerLogger::write(message);
    if (error)
        *error = message;
    return false;
}

// Children before their parents: more separators first, then the longer path. Paths of the same
// depth and length keep no particular order; the uninstaller needs nothing more.
bool deeperFirst(const QString &a, const QString &b)
{
    const qsizetype depthA = a.count(QLatin1Char('/'));
    const qsizetype depthB = b.count(QLatin1Char('/'));
    if (depthA != depthB)
        return depthA > depthB;
    return a.size() > b.size();
}

bool collect(const QStringList &paths, const QString &rejection, QStringList *sorted)
{
    QSet<QString> unique;
    for (const QString &path : paths) {
        const QString slashed = QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
        if (!OverlayTransaction::relative(slashed)) {
            InstallerLogger::write(rejection.arg(path));
            return false;
        }
        unique.insert(slashed);
    }
    *sorted = QStringList(unique.cbegin(), unique.cend());
    return true;
}

} // namespace

bool installedEntries(const QString &installDirectory, QStringList *files, QStringList *directories, QString *error)
{
    const QString path = QDir(installDirectory).filePath(QStringLiteral("uninstall.dat"));
    if (!FileLinks::exists(path)) {
        files->clear();
        directories->clear();
        return true;
    }
    QFile list(path);
    if (FileLinks::pathHasLink(path) || !QFileInfo(path).isFile() || QFileInfo(path).size() > largestList
        || !list.open(QIODevice::ReadOnly))
        return refused(error, QStringLiteral("Installed uninstall data not carried forward: unreadable %1").arg(path));
    const QList<QByteArray> lines = list.readAll().split('\n');
    if (lines.value(0) != magic || !lines.constLast().isEmpty())
        return refused(error, QStringLiteral("Installed uninstall data not carried forward: wrong magic or ending"));
    QStringList keptFiles;
    QStringList keptDirectories;
    for (qsizetype i = 1; i + 1 < lines.size(); ++i) {
        const QByteArray &line = lines.at(i);
        const QString entry = QString::fromUtf8(line.mid(2));
        if ((!line.startsWith("F\t") && !line.startsWith("D\t")) || !OverlayTransaction::relative(entry) || entry.contains(QLatin1Char('\\')))
            return refused(error, QStringLiteral("Installed uninstall data not carried forward: unsafe entry %1").arg(QString::fromUtf8(line)));
        const QString target = QDir(installDirectory).filePath(entry);
        if (!FileLinks::exists(target))
            continue; // gone already: nothing left to remove
        const QFileInfo info(target);
        const bool file = line.startsWith('F');
        if (FileLinks::pathHasLink(target) || (file ? !info.isFile() : !info.isDir()))
            return refused(error, QStringLiteral("Installed uninstall data not carried forward: %1 is not what it was").arg(entry));
        (file ? keptFiles : keptDirectories).append(entry);
    }
    *files = keptFiles;
    *directories = keptDirectories;
    return true;
}

bool writeUninstallData(const QString &stagingDirectory, const QStringList &files, const QStringList &directories)
{
    QStringList fileList;
    QStringList directoryList;
    const QStringList ownFiles { QStringLiteral("uninstall.exe"), QStringLiteral("uninstall.dat"), QStringLiteral("obs-path-conf.json") };
    if (!collect(files + ownFiles, QStringLiteral("Unsafe uninstall file path rejected: %1"), &fileList))
        return false;
    if (!collect(directories, QStringLiteral("Unsafe uninstall directory path rejected: %1"), &directoryList))
        return false;
    std::sort(fileList.begin(), fileList.end()); // plain UTF-16 comparison
    std::sort(directoryList.begin(), directoryList.end(), deeperFirst);

    QByteArray content = magic + '\n';
    for (const QString &file : std::as_const(fileList))
        content += "F\t" + file.toUtf8() + '\n';
    for (const QString &directory : std::as_const(directoryList))
        content += "D\t" + directory.toUtf8() + '\n';

    QSaveFile output(QDir(stagingDirectory).filePath(QStringLiteral("uninstall.dat")));
    if (!output.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    if (output.write(content) != content.size()) {
        output.cancelWriting();
        return false;
    }
    return output.commit();
}

} // namespace UninstallData
