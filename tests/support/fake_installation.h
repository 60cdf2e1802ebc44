#pragma once

#include <QByteArray>
#include <QString>

// Installations on disk for tests: what an installer of ours leaves behind, and what a launcher
// build that updates itself expects to find. Every function returns false when a file could not
// be written, so a test can QVERIFY its set-up.
namespace FakeInstallation {

// The first line "uninstall.dat" must begin with to count as ours.
inline const QByteArray rightMagic = QByteArrayLiteral("BRISALINKER_UNINSTALL_V1");

// A minimal PE image (x86-64, no sections, no resources): valid headers, nothing else.
QByteArray minimalExecutable();

// The four markers "brisalinker.exe", "updater.exe", "uninstall.exe" and "uninstall.dat" with
// `magic` as the first line of "uninstall.dat". The three programs are copies of `launcherExe`
// when one is given (so that Windows can read their version information), otherwise
// minimalExecutable().
bool makeInstallation(const QString &root, const QString &launcherExe = QString(),
                      const QByteArray &magic = rightMagic);

// What an automatic update expects: "brisalinker.exe" copied from `launcherExe`,
// "cfgdata/version.ini" naming `version` as "release/version", and "<version>/bl-core.exe".
bool makeUpdatable(const QString &root, const QString &launcherExe, const QString &version);

// An installation exactly as the earlier installer left it in `sourceRoot`: the old-layout
// "brisalinker.exe" and "updater.exe" (copies of `oldLayoutExe`, whose version resource names the
// product without the word Launcher), the uninstaller's "unins000.exe/.dat/.msg", and the
// component folders "OBS-Studio" and "Pellacore" holding user data. With `registryRoot` (such as
// "HKEY_USERS\\<SID>") it also writes the earlier installer's per-user entry "Brisa-Linker_is1"
// and its "Software\\BrisaLinker" key, both naming `sourceRoot`.
bool makeEarlierInstallation(const QString &sourceRoot, const QString &oldLayoutExe,
                             const QString &registryRoot = QString());

} // namespace FakeInstallation
