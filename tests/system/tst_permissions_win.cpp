#include "tst_system.h"
#include "system/access_list_win.h"
#include "system/file_links.h"
#include "system/handles_win.h"
#include "system/installation_permissions.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <windows.h>
#include <sddl.h>

using InstallationPermissions::Transaction;

namespace {

const QStringList createdEntries { "logs", "cfgdata", ".staging", ".downloads", "assets", ".brisalinker.lock" };

QString dacl(const QString &path)
{
    DWORD size = 0;
    GetFileSecurityW(wideChars(path), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    QByteArray descriptor(int(size), '\0');
    wchar_t *text = nullptr;
    if (size == 0 || !GetFileSecurityW(wideChars(path), DACL_SECURITY_INFORMATION, descriptor.data(), size, &size)
        || !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
        return QStringLiteral("unreadable");
    }
    const UniqueLocal<wchar_t> owned(text);
    return QString::fromWCharArray(text);
}

bool setDacl(const QString &path, const wchar_t *sddl)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor, nullptr))
        return false;
    const UniqueLocal<void> owned(descriptor);
    return SetFileSecurityW(wideChars(path), DACL_SECURITY_INFORMATION, descriptor);
}

// The root and everything below it, parents first, with each one's access list in SDDL.
QMap<QString, QString> dacls(const QString &root)
{
    QMap<QString, QString> result { { root, dacl(root) } };
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        result.insert(path, dacl(path));
    }
    return result;
}

// The process token under Wine is an administrator's; with that group for denial only it is what
// the signed-in user of a real machine holds.
UniqueHandle userToken()
{
    HANDLE own = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_ASSIGN_PRIMARY | TOKEN_IMPERSONATE, &own))
        return {};
    const UniqueHandle ownToken(own);
    BYTE administrators[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof(administrators);
    if (!CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size))
        return {};
    SID_AND_ATTRIBUTES denyOnly { administrators, 0 };
    HANDLE restricted = nullptr;
    if (!CreateRestrictedToken(own, 0, 1, &denyOnly, 0, nullptr, 0, nullptr, &restricted))
        return {};
    return UniqueHandle(restricted);
}

bool mayModify(HANDLE token, const QString &path)
{
    const SECURITY_INFORMATION parts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    DWORD size = 0;
    GetFileSecurityW(wideChars(path), parts, nullptr, 0, &size);
    QByteArray descriptor(int(size), '\0');
    HANDLE impersonation = nullptr;
    if (size == 0 || !GetFileSecurityW(wideChars(path), parts, descriptor.data(), size, &size)
        || !DuplicateToken(token, SecurityImpersonation, &impersonation)) {
        return false;
    }
    const UniqueHandle owned(impersonation);
    GENERIC_MAPPING mapping { FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS };
    DWORD wanted = InstallationPermissions::modifyAccess;
    PRIVILEGE_SET privileges {};
    DWORD privilegesSize = sizeof(privileges);
    DWORD granted = 0;
    BOOL allowed = FALSE;
    return AccessCheck(descriptor.data(), impersonation, wanted, &mapping, &privileges, &privilegesSize, &granted, &allowed)
        && allowed && granted == wanted;
}

// A product tree as an elevated installer leaves it: only the system may change it, users may
// read it. (Administrators are left out: Wine keeps a file's list only as Unix modes, where an
// administrators' entry would reach the user too.)
QString makeProduct(const QString &base)
{
    const QString root = base + QStringLiteral("/BrisaLinker");
    for (const char *file : { "brisalinker.exe", "updater.exe", "1.5.0/bl-core.exe", "cfgdata/version.ini", "WinServices/bl-maintenance.exe" }) {
        QDir().mkpath(QFileInfo(root + QLatin1Char('/') + QLatin1String(file)).path());
        QFile(root + QLatin1Char('/') + QLatin1String(file)).open(QIODevice::WriteOnly);
    }
    for (const QString &path : dacls(root).keys())
        setDacl(path, L"D:P(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)");
    return root;
}

} // namespace

void SystemTest::refusedPermissionRoots_data()
{
    QTest::addColumn<QString>("root");
    QTest::newRow("a directory of another name") << "Other";
    QTest::newRow("a name that only ends like the product") << "NotBrisaLinker";
    QTest::newRow("a drive root") << "C:/";
    QTest::newRow("a drive letter without a path") << "C:";
    QTest::newRow("a network share") << "//server/share/BrisaLinker";
    QTest::newRow("a network share in native form") << "\\\\server\\share\\BrisaLinker";
    QTest::newRow("a relative path") << "Apps/BrisaLinker";
}

void SystemTest::refusedPermissionRoots()
{
    QFETCH(QString, root);
    QTemporaryDir temp;
    const bool local = !root.contains(QLatin1Char('/')) && !root.contains(QLatin1Char('\\')) && !root.endsWith(QLatin1Char(':'));
    if (local) {
        root = temp.filePath(root);
        QVERIFY(QDir().mkpath(root));
    }
    const UniqueHandle token = userToken();
    QVERIFY(token);
    QStringList log;
    Transaction transaction([&log](const QString &line) { log << line; });
    QVERIFY(!transaction.apply(root, token.get(), nullptr));
    QCOMPARE(log, QStringList { QStringLiteral("Directory permission setup failed: operation=validate_root path=%1 windows_error=87").arg(root) });
    QCOMPARE(transaction.objectCount(), 0);
    if (local)
        QCOMPARE(QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

void SystemTest::permissionsGrantModifyOnEveryObject()
{
    QTemporaryDir temp;
    const QString root = makeProduct(temp.path());
    // An administrator's refusal for guests on one file must outlive the change. Wine keeps file
    // lists only as Unix modes and drops it at once; there the in-memory merge test covers it.
    QVERIFY(setDacl(root + QStringLiteral("/updater.exe"), L"D:P(D;;FA;;;BG)(A;;FA;;;SY)(A;;0x1200a9;;;BU)"));
    const QRegularExpression denial(QStringLiteral("\\(D;[^)]*\\)"));
    const QString deniedBefore = denial.match(dacl(root + QStringLiteral("/updater.exe"))).captured();
    const QString service = root + QStringLiteral("/WinServices");
    const QMap<QString, QString> serviceBefore = dacls(service);
    const UniqueHandle token = userToken();
    QVERIFY(token);
    for (const QString &path : dacls(root).keys())
        QVERIFY2(!mayModify(token.get(), path), qPrintable(path + QStringLiteral(" is already open to the user")));

    QStringList log;
    Transaction transaction([&log](const QString &line) { log << line; });
    QString error;
    QVERIFY2(transaction.apply(root, token.get(), &error), qPrintable(error + log.join(QLatin1Char('\n'))));
    QVERIFY(log.isEmpty());

    QMap<QString, QString> after = dacls(root);
    for (const QString &name : createdEntries)
        QVERIFY2(after.contains(root + QLatin1Char('/') + name), qPrintable(name));
    // The service's folder keeps its own rights; everything else is open to the user.
    QCOMPARE(dacls(service), serviceBefore);
    for (const QString &path : serviceBefore.keys())
        after.remove(path);
    QCOMPARE(transaction.objectCount(), after.size());
    for (const QString &path : after.keys())
        QVERIFY2(mayModify(token.get(), path), qPrintable(path));
    if (!deniedBefore.isEmpty())
        QCOMPARE(denial.match(after.value(root + QStringLiteral("/updater.exe"))).captured(), deniedBefore);
}

void SystemTest::mergingKeepsDenials_data()
{
    QTest::addColumn<QString>("before"); // %1: the user's SID
    QTest::addColumn<bool>("directory");
    QTest::newRow("a denial for guests on a file") << "D:P(D;;FA;;;BG)(A;;FA;;;SY)" << false;
    QTest::newRow("an inherited denial") << "D:AI(D;ID;FA;;;BG)(A;ID;FA;;;SY)" << false;
    QTest::newRow("a denial that reaches into a directory's contents") << "D:P(D;OICI;0x10000;;;BG)(A;OICI;FA;;;SY)" << true;
    QTest::newRow("the user's own denial of changing the list") << "D:P(D;;WD;;;%1)(A;;FA;;;SY)" << false;
}

void SystemTest::mergingKeepsDenials()
{
    QFETCH(QString, before);
    QFETCH(bool, directory);
    const UniqueHandle token = userToken();
    const QString sidText = InstallationPermissions::tokenSid(token.get());
    PSID sid = nullptr;
    QVERIFY(ConvertStringSidToSidW(wideChars(sidText), &sid));
    const UniqueLocal<void> ownedSid(sid);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    QVERIFY(ConvertStringSecurityDescriptorToSecurityDescriptorW(wideChars(before.arg(sidText)), SDDL_REVISION_1, &descriptor, nullptr));
    const UniqueLocal<void> ownedDescriptor(descriptor);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL old = nullptr;
    QVERIFY(GetSecurityDescriptorDacl(descriptor, &present, &old, &defaulted) && present && old);

    UniqueLocal<ACL> merged;
    QCOMPARE(AccessList::mergeGrant(old, sid, InstallationPermissions::modifyAccess, directory, &merged), DWORD(ERROR_SUCCESS));
    QVERIFY(AccessList::keepsDenials(old, merged.get()));
    QVERIFY(AccessList::holdsGrant(merged.get(), sid, InstallationPermissions::modifyAccess, directory));
    SECURITY_DESCRIPTOR after;
    wchar_t *text = nullptr;
    QVERIFY(InitializeSecurityDescriptor(&after, SECURITY_DESCRIPTOR_REVISION) && SetSecurityDescriptorDacl(&after, TRUE, merged.get(), FALSE));
    QVERIFY(ConvertSecurityDescriptorToStringSecurityDescriptorW(&after, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
    const UniqueLocal<wchar_t> ownedText(text);
    const QRegularExpression denial(QStringLiteral("\\(D;[^)]*\\)"));
    const auto denials = [&denial](const QString &sddl) {
        QStringList found;
        for (auto match = denial.globalMatch(sddl); match.hasNext();)
            found << match.next().captured();
        return found;
    };
    wchar_t *beforeText = nullptr;
    QVERIFY(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &beforeText, nullptr));
    const UniqueLocal<wchar_t> ownedBefore(beforeText);
    QCOMPARE(denials(QString::fromWCharArray(text)), denials(QString::fromWCharArray(beforeText)));
    QCOMPARE(denials(QString::fromWCharArray(beforeText)).size(), 1);
}

void SystemTest::refusedPermissionTreesRollBack_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QString>("operation");
    QTest::newRow("a second hard link to a product file outside the tree") << "hard-link" << "reject_hard_link";
    QTest::newRow("a directory link inside the tree") << "directory-link" << "reject_reparse_point";
    QTest::newRow("the service program outside its folder") << "service-payload" << "reject_service_payload";
    // Every list was written: all of them go back.
    QTest::newRow("a finished transaction rolled back") << "none" << QString();
}

void SystemTest::refusedPermissionTreesRollBack()
{
    QFETCH(QString, obstacle);
    QFETCH(QString, operation);
    QTemporaryDir temp;
    QString root = makeProduct(temp.path());
    const QString outside = temp.filePath(QStringLiteral("outside.txt"));
    const UniqueHandle token = userToken();
    QVERIFY(token);
    if (obstacle == QLatin1String("hard-link")) {
        QFile(outside).open(QIODevice::WriteOnly);
        QVERIFY(CreateHardLinkW(wideChars(QDir::toNativeSeparators(root + QStringLiteral("/1.5.0/linked.dll"))),
                                wideChars(QDir::toNativeSeparators(outside)), nullptr));
    } else if (obstacle == QLatin1String("directory-link")) {
        root = QStringLiteral("C:/brisa-link-fixture/install-with-link/BrisaLinker");
        QVERIFY2(FileLinks::isLink(root + QStringLiteral("/plugins")), "the harness's link fixture is missing");
    } else if (obstacle == QLatin1String("service-payload")) {
        QFile(root + QStringLiteral("/1.5.0/bl-maintenance.exe")).open(QIODevice::WriteOnly);
    }
    const QMap<QString, QString> before = dacls(root);
    const QString outsideBefore = dacl(outside);

    QStringList log;
    Transaction transaction([&log](const QString &line) { log << line; });
    QCOMPARE(transaction.apply(root, token.get(), nullptr), operation.isEmpty());
    QCOMPARE(transaction.failedOperation(), operation);
    QCOMPARE(log.size(), operation.isEmpty() ? 0 : 1);
    if (!operation.isEmpty())
        QVERIFY2(log.first().startsWith(QStringLiteral("Directory permission setup failed: operation=%1 path=%2/").arg(operation, root)), qPrintable(log.first()));
    else
        QVERIFY(mayModify(token.get(), root + QStringLiteral("/updater.exe")));
    QVERIFY(transaction.rollback());
    QCOMPARE(dacls(root), before); // every access list as it was, nothing created left behind
    QCOMPARE(dacl(outside), outsideBefore);
}
