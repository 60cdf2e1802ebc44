#include "uninstaller/uninstall_data.h"
#include "app/installer_logger.h"

#include <QDir>
#include <QSaveFile>
#include <QSet>

#include <algorithm>

namespace UninstallData {

namespace {

const QByteArray magic = QByteArrayLiteral("BRISALINKER_UNINSTALL_V1");

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
        if (!safeUninstallRelativePath(slashed)) {
            InstallerLogger::write(rejection.arg(path));
            return false;
        }
        unique.insert(slashed);
    }
    *sorted = QStringList(unique.cbegin(), unique.cend());
    return true;
}

} // namespace

bool safeUninstallRelativePath(const QString &path)
{
    const QString slashed = QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (slashed.isEmpty() || slashed.startsWith(QLatin1Char('/')) || slashed.contains(QLatin1Char(':'))
        || !QDir::isRelativePath(slashed)) {
        return false;
    }
    const QStringList parts = slashed.split(QLatin1Char('/'));
    return std::none_of(parts.cbegin(), parts.cend(), [](const QString &part) {
        return part.isEmpty() || part == QLatin1String(".") || part == QLatin1String("..");
    });
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
