#include "support/fake_installation.h"

#include "support/test_files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QtEndian>

#include <cstring>

namespace FakeInstallation {

namespace {

bool copyExecutable(const QString &from, const QString &to)
{
    if (from.isEmpty())
        return TestFiles::write(to, minimalExecutable());
    QFile::remove(to);
    return QDir().mkpath(QFileInfo(to).path()) && QFile::copy(from, to);
}

// The user data the earlier installation keeps in its component folders.
QList<QPair<QString, QByteArray>> earlierUserData()
{
    return {
        { QStringLiteral("OBS-Studio/config/obs-studio/basic/profiles/Untitled/basic.ini"), "[General]\r\nName=Untitled\r\n" },
        { QStringLiteral("OBS-Studio/config/obs-studio/global.ini"), "[General]\r\nFirstRun=false\r\n" },
        { QStringLiteral("OBS-Studio/bin/64bit/obs64.exe"), minimalExecutable() },
        { QStringLiteral("Pellacore/User Data/Default/Preferences"), "{\"profile\":{\"name\":\"Person 1\"}}" },
        { QStringLiteral("Pellacore/User Data/Local State"), "{\"profile\":{}}" },
    };
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

bool makeInstallation(const QString &root, const QString &launcherExe, const QByteArray &magic)
{
    return copyExecutable(launcherExe, root + QStringLiteral("/brisalinker.exe"))
        && copyExecutable(launcherExe, root + QStringLiteral("/updater.exe"))
        && copyExecutable(launcherExe, root + QStringLiteral("/uninstall.exe"))
        && TestFiles::write(root + QStringLiteral("/uninstall.dat"), magic + "\r\nF\tbrisalinker.exe\r\n");
}

bool makeUpdatable(const QString &root, const QString &launcherExe, const QString &version)
{
    return copyExecutable(launcherExe, root + QStringLiteral("/brisalinker.exe"))
        && TestFiles::write(root + QStringLiteral("/cfgdata/version.ini"), "[release]\r\nversion=" + version.toUtf8() + "\r\n")
        && TestFiles::write(root + QLatin1Char('/') + version + QStringLiteral("/bl-core.exe"), minimalExecutable());
}

bool makeEarlierInstallation(const QString &sourceRoot, const QString &oldLayoutExe, const QString &registryRoot)
{
    bool made = copyExecutable(oldLayoutExe, sourceRoot + QStringLiteral("/brisalinker.exe"))
        && copyExecutable(oldLayoutExe, sourceRoot + QStringLiteral("/updater.exe"))
        && copyExecutable(oldLayoutExe, sourceRoot + QStringLiteral("/unins000.exe"))
        && TestFiles::write(sourceRoot + QStringLiteral("/unins000.dat"), QByteArray("Inno Setup Uninstall Log (b) 64-bit"))
        && TestFiles::write(sourceRoot + QStringLiteral("/unins000.msg"), QByteArray("Inno Setup Messages (6.0.0) (u)"));
    for (const auto &[path, content] : earlierUserData())
        made = made && TestFiles::write(sourceRoot + QLatin1Char('/') + path, content);
    if (!made || registryRoot.isEmpty())
        return made;
    const QString native = QDir::toNativeSeparators(sourceRoot);
    QSettings entry(registryRoot + QStringLiteral("\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Brisa-Linker_is1"), QSettings::NativeFormat);
    entry.setValue(QStringLiteral("InstallLocation"), native + QLatin1Char('\\'));
    entry.setValue(QStringLiteral("UninstallString"), QStringLiteral("\"%1\\unins000.exe\"").arg(native));
    entry.setValue(QStringLiteral("DisplayName"), QStringLiteral("Brisa-Linker"));
    entry.sync();
    QSettings product(registryRoot + QStringLiteral("\\Software\\BrisaLinker"), QSettings::NativeFormat);
    product.setValue(QStringLiteral("InstallDir"), native);
    product.setValue(QStringLiteral("Version"), QStringLiteral("1.2.3"));
    product.sync();
    return entry.status() == QSettings::NoError && product.status() == QSettings::NoError;
}

} // namespace FakeInstallation
