#include "tst_system.h"
#include "system/access_list_win.h"
#include "system/handles_win.h"
#include "system/installation_permissions.h"
#include "support/test_links.h"
#include "support/user_token_win.h"

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

QString sddl(PSECURITY_DESCRIPTOR descriptor)
{
    wchar_t *text = nullptr;
    if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr))
        return QStringLiteral("unreadable");
    const UniqueLocal<wchar_t> owned(text);
    return QString::fromWCharArray(text);
}

UniqueLocal<void> fromSddl(const QString &text)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(wideChars(text), SDDL_REVISION_1, &descriptor, nullptr);
    return UniqueLocal<void>(descriptor);
}

// The root and everything below it, each with its access list in SDDL.
QMap<QString, QString> dacls(const QString &root)
{
    QMap<QString, QString> result;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    for (QString path = root; !path.isEmpty(); path = it.hasNext() ? it.next() : QString())
        result.insert(path, sddl(UserToken::fileSecurity(path, DACL_SECURITY_INFORMATION).data()));
    return result;
}

bool mayModify(HANDLE token, const QString &path)
{
    return UserToken::mayAccess(token, path, InstallationPermissions::modifyAccess);
}

// A product tree as an elevated installer leaves it: only the system may change it, users may
// read it. (No administrators' entry: Wine keeps a file's list only as Unix modes, where that
// entry would reach the user too.)
QString makeProduct(const QString &base)
{
    const QString root = base + QStringLiteral("/BrisaLinker");
    for (const char *file : { "brisalinker.exe", "updater.exe", "1.5.0/bl-core.exe", "cfgdata/version.ini", "WinServices/bl-maintenance.exe" }) {
        QDir().mkpath(QFileInfo(root + QLatin1Char('/') + QLatin1String(file)).path());
        QFile(root + QLatin1Char('/') + QLatin1String(file)).open(QIODevice::WriteOnly);
    }
    const UniqueLocal<void> systemOnly = fromSddl(QStringLiteral("D:P(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)"));
    for (const QString &path : dacls(root).keys())
        SetFileSecurityW(wideChars(path), DACL_SECURITY_INFORMATION, systemOnly.get());
    return root;
}

QStringList denials(const QString &sddl)
{
    static const QRegularExpression denial(QStringLiteral("\\(D;[^)]*\\)"));
    QStringList found;
    for (auto match = denial.globalMatch(sddl); match.hasNext();)
        found << match.next().captured();
    return found;
}

} // namespace

void SystemTest::permissionsGrantModifyOnEveryObject()
{
    QTemporaryDir temp;
    const QString root = makeProduct(temp.path());
    const QMap<QString, QString> service = dacls(root + QStringLiteral("/WinServices"));
    const UniqueHandle token = UserToken::restricted();
    QVERIFY(token);
    for (const QString &path : dacls(root).keys())
        QVERIFY2(!mayModify(token.get(), path), qPrintable(path));

    Transaction transaction(nullptr);
    QString error;
    QVERIFY2(transaction.apply(root, token.get(), &error), qPrintable(error));
    QMap<QString, QString> after = dacls(root);
    for (const char *name : { "logs", "cfgdata", ".staging", ".downloads", "assets", ".brisalinker.lock" })
        QVERIFY2(after.contains(root + QLatin1Char('/') + QLatin1String(name)), name);
    // The service's folder keeps the rights of its own setup; everything else is open to the user.
    QCOMPARE(dacls(root + QStringLiteral("/WinServices")), service);
    for (const QString &path : service.keys())
        after.remove(path);
    QCOMPARE(transaction.objectCount(), after.size());
    for (const QString &path : after.keys())
        QVERIFY2(mayModify(token.get(), path), qPrintable(path));
}

// Wine keeps a file's list only as Unix modes and drops a denial at once, so the merge is checked
// on lists made in memory; Windows keeps them the same way on disk.
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
    const QString user = InstallationPermissions::tokenSid(UserToken::restricted().get());
    PSID sid = nullptr;
    QVERIFY(ConvertStringSidToSidW(wideChars(user), &sid));
    const UniqueLocal<void> ownedSid(sid);
    const UniqueLocal<void> old = fromSddl(before.arg(user));
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    QVERIFY(old && GetSecurityDescriptorDacl(old.get(), &present, &list, &defaulted) && list);

    UniqueLocal<ACL> merged;
    QCOMPARE(AccessList::mergeGrant(list, sid, InstallationPermissions::modifyAccess, directory, &merged), DWORD(ERROR_SUCCESS));
    QVERIFY(AccessList::keepsDenials(list, merged.get()));
    QVERIFY(AccessList::holdsGrant(merged.get(), sid, InstallationPermissions::modifyAccess, directory));
    SECURITY_DESCRIPTOR after;
    QVERIFY(InitializeSecurityDescriptor(&after, SECURITY_DESCRIPTOR_REVISION) && SetSecurityDescriptorDacl(&after, TRUE, merged.get(), FALSE));
    QCOMPARE(denials(sddl(&after)), denials(sddl(old.get())));
    QCOMPARE(denials(sddl(old.get())).size(), 1);
}

// A refused root, or an obstacle in a product tree: nothing is applied, the log names the
// operation, the path and the Windows error, and the rollback leaves every list as it was.
void SystemTest::refusedPermissionTreesRollBack_data()
{
    QTest::addColumn<QString>("root"); // empty: a product tree
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("error");
    QTest::newRow("a directory of another name") << "NotBrisaLinker" << "" << "validate_root" << 87;
    QTest::newRow("a drive root") << "C:/" << "" << "validate_root" << 87;
    QTest::newRow("a network share") << "//server/share/BrisaLinker" << "" << "validate_root" << 87;
    QTest::newRow("a network share in native form") << "\\\\server\\share\\BrisaLinker" << "" << "validate_root" << 87;
    QTest::newRow("a relative path") << "Apps/BrisaLinker" << "" << "validate_root" << 87;
    QTest::newRow("a second hard link to a product file outside the tree") << "" << "1.5.0/linked.dll" << "reject_hard_link" << 13;
    QTest::newRow("a directory link inside the tree") << "" << "plugins" << "reject_reparse_point" << 4393;
    QTest::newRow("the service program outside its folder") << "" << "1.5.0/bl-maintenance.exe" << "reject_service_payload" << 5;
    QTest::newRow("a finished transaction rolled back: every list goes back") << "" << "" << "" << 0;
}

void SystemTest::refusedPermissionTreesRollBack()
{
    QFETCH(QString, root);
    QFETCH(QString, obstacle);
    QFETCH(QString, operation);
    QFETCH(int, error);
    QTemporaryDir temp;
    if (root == QLatin1String("NotBrisaLinker"))
        QVERIFY(QDir().mkpath(root = temp.filePath(root)));
    root = root.isEmpty() ? makeProduct(temp.path()) : root;
    const QString outside = temp.filePath(QStringLiteral("outside"));
    QVERIFY(QDir().mkpath(outside) && QFile(outside + QStringLiteral("/file.dll")).open(QIODevice::WriteOnly));
    if (operation == QLatin1String("reject_hard_link"))
        QVERIFY(CreateHardLinkW(wideChars(root + QLatin1Char('/') + obstacle), wideChars(outside + QStringLiteral("/file.dll")), nullptr));
    else if (operation == QLatin1String("reject_reparse_point"))
        QVERIFY(TestLinks::makeDirectoryLink(outside, root + QLatin1Char('/') + obstacle));
    else if (!obstacle.isEmpty())
        QVERIFY(QFile(root + QLatin1Char('/') + obstacle).open(QIODevice::WriteOnly));
    const bool product = operation != QLatin1String("validate_root");
    const QMap<QString, QString> before = product ? dacls(root) : QMap<QString, QString>();
    const QMap<QString, QString> outsideBefore = dacls(outside);
    const UniqueHandle token = UserToken::restricted();
    QStringList log;
    Transaction transaction([&log](const QString &line) { log << line; });
    QCOMPARE(transaction.apply(root, token.get(), nullptr), operation.isEmpty());
    QCOMPARE(transaction.failedOperation(), operation);
    const QString path = obstacle.isEmpty() ? root : root + QLatin1Char('/') + obstacle;
    QCOMPARE(log, operation.isEmpty() ? QStringList() : QStringList { QStringLiteral("Directory permission setup failed: operation=%1 path=%2 windows_error=%3").arg(operation, path).arg(error) });
    QVERIFY(product || !QFileInfo::exists(root + QStringLiteral("/.brisalinker.lock")));
    QVERIFY(!product || transaction.rollback());
    QCOMPARE(product ? dacls(root) : before, before); // every list as it was, nothing created left behind
    QCOMPARE(dacls(outside), outsideBefore);
}
