#include "support/fake_installation.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <cstring>

namespace FakeInstallation {

namespace {

bool copyExecutable(const QString &from, const QString &to)
{
    if (from.isEmpty())
        return writeFile(to, minimalExecutable());
    QFile::remove(to);
    return QDir().mkpath(QFileInfo(to).path()) && QFile::copy(from, to);
}

} // namespace

QByteArray minimalExecutable()
{
    QByteArray image(64 + 24 + 240, '\0');
    char *data = image.data();
    data[0] = 'M';
    data[1] = 'Z';
    qToLittleEndian<quint32>(64, data + 60);
    memcpy(data + 64, "PE\0\0", 4);
    qToLittleEndian<quint16>(0x8664, data + 68); // machine
    qToLittleEndian<quint16>(240, data + 84);    // size of the optional header
    qToLittleEndian<quint16>(0x0022, data + 86); // executable image, large address aware
    qToLittleEndian<quint16>(0x20B, data + 88);  // PE32+
    return image;
}

bool writeFile(const QString &path, const QByteArray &content)
{
    if (!QDir().mkpath(QFileInfo(path).path()))
        return false;
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

bool makeInstallation(const QString &root, const QString &launcherExe, const QByteArray &magic)
{
    return copyExecutable(launcherExe, root + QStringLiteral("/brisalinker.exe"))
        && copyExecutable(launcherExe, root + QStringLiteral("/updater.exe"))
        && copyExecutable(launcherExe, root + QStringLiteral("/uninstall.exe"))
        && writeFile(root + QStringLiteral("/uninstall.dat"), magic + "\r\nF\tbrisalinker.exe\r\n");
}

bool makeUpdatable(const QString &root, const QString &launcherExe, const QString &version)
{
    return copyExecutable(launcherExe, root + QStringLiteral("/brisalinker.exe"))
        && writeFile(root + QStringLiteral("/cfgdata/version.ini"), "[release]\r\nversion=" + version.toUtf8() + "\r\n")
        && writeFile(root + QLatin1Char('/') + version + QStringLiteral("/bl-core.exe"), minimalExecutable());
}

} // namespace FakeInstallation
