#include "support/tree_fixture.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>

TreeFixture::TreeFixture() = default;

bool TreeFixture::setUp(const Files &installed, const Files &payload)
{
    if (!m_base.isValid() || !QDir().mkpath(stage()))
        return false;
    for (auto it = installed.cbegin(); it != installed.cend(); ++it) {
        if (!write(root() + QLatin1Char('/') + it.key(), it.value()))
            return false;
    }
    for (auto it = payload.cbegin(); it != payload.cend(); ++it) {
        if (!write(stage() + QLatin1Char('/') + it.key(), it.value()))
            return false;
    }
    return true;
}

QMap<QString, QString> TreeFixture::snapshot(const QString &directory)
{
    QMap<QString, QString> result;
    // An empty name would walk the working directory.
    if (directory.isEmpty() || !QFileInfo(directory).isDir())
        return result;
    const QDir base(directory);
    QDirIterator walk(directory, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString entry = walk.next();
        const QString relative = base.relativeFilePath(entry);
        if (walk.fileInfo().isDir()) {
            result.insert(relative + QLatin1Char('/'), QStringLiteral("dir"));
            continue;
        }
        result.insert(relative, QString::fromLatin1(QCryptographicHash::hash(read(entry), QCryptographicHash::Sha256).toHex()));
    }
    return result;
}

QMap<QString, QString> TreeFixture::expected(const Files &files)
{
    QMap<QString, QString> result;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        result.insert(it.key(), QString::fromLatin1(QCryptographicHash::hash(it.value(), QCryptographicHash::Sha256).toHex()));
        for (QString parent = QFileInfo(it.key()).path(); parent != QLatin1String("."); parent = QFileInfo(parent).path())
            result.insert(parent + QLatin1Char('/'), QStringLiteral("dir"));
    }
    return result;
}

TreeFixture::Files TreeFixture::overlaid(const Files &installed, const Files &payload)
{
    Files result = installed;
    for (auto it = payload.cbegin(); it != payload.cend(); ++it)
        result.insert(it.key(), it.value());
    return result;
}

QString TreeFixture::backup() const
{
    const QDir base(m_base.path());
    const QStringList found = base.entryList({ QStringLiteral("BrisaLinker.backup-transaction-*") },
                                             QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot);
    return found.isEmpty() ? QString() : base.filePath(found.first());
}

QStringList TreeFixture::contents() const
{
    QSet<QString> digests;
    const QMap<QString, QString> all = snapshot(m_base.path());
    for (auto it = all.cbegin(); it != all.cend(); ++it) {
        if (it.value() != QLatin1String("dir") && !it.key().endsWith(QLatin1String(".install-transaction.json")))
            digests.insert(it.value());
    }
    QStringList result(digests.begin(), digests.end());
    result.sort();
    return result;
}

TreeFixture::Files TreeFixture::installation()
{
    return {
        { QStringLiteral("brisalinker.exe"), "old launcher" },
        { QStringLiteral("updater.exe"), "old updater" },
        { QStringLiteral("1.4.19/bl-core.exe"), "old core" },
        { QStringLiteral("cfgdata/version.ini"), "1.4.19" },
        { QStringLiteral("plugins/a.dll"), "old a" },
        { QStringLiteral("help/Manual.lnk"), "not a shell link, old" },
    };
}

TreeFixture::Files TreeFixture::installationWithoutLauncher()
{
    Files files = installation();
    files.remove(QStringLiteral("brisalinker.exe"));
    return files;
}

TreeFixture::Files TreeFixture::payload()
{
    return {
        { QStringLiteral("brisalinker.exe"), "new launcher" },
        { QStringLiteral("updater.exe"), "new updater" },
        { QStringLiteral("1.4.20/bl-core.exe"), "new core" },
        { QStringLiteral("1.4.20/res/Big.pak"), QByteArray(70000, 'p') },
        { QStringLiteral("cfgdata/version.ini"), "1.4.20" },
        { QStringLiteral("plugins/a.dll"), "new a" },
        { QStringLiteral("plugins/B.dll"), "new b" },
        { QStringLiteral("help/Manual.lnk"), "not a shell link, new" },
    };
}
