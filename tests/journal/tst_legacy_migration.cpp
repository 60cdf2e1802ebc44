// The migration of an installation of the earlier layout, on one built exactly as the earlier
// installer left it: its life from begin to the last clean-up, records that must not be acted
// on, and a real process killed at every change it makes to the disk and the registry.
#include "tst_journal.h"

#include "crash_subject.h"
#include "finalize/in_place_install.h"
#include "journal/legacy_migration.h"
#include "support/fake_installation.h"
#include "system/desktop_user.h"
#include "system/user_registry.h"
#include "support/tree_fixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

namespace {

const QString uninstallEntry = QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\BrisaLinker");
const QString innoEntry = QStringLiteral("Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Brisa-Linker_is1");
const QString productKey = QStringLiteral("Software\\BrisaLinker");

using Registry = QList<QList<UserRegistry::Value>>;

Registry readRegistry()
{
    Registry registry;
    for (const QString &key : { uninstallEntry, innoEntry, productKey }) {
        QList<UserRegistry::Value> values;
        UserRegistry::readValues(key, &values);
        // A key put back reads the same whatever order its values were written in.
        std::sort(values.begin(), values.end(), [](const UserRegistry::Value &a, const UserRegistry::Value &b) { return a.name < b.name; });
        registry.append(values);
    }
    return registry;
}

UserRegistry::Value textValue(const QString &name, const QString &text, quint32 type)
{
    const QString terminated = text + QChar(0);
    return { name, type, QByteArray(reinterpret_cast<const char *>(terminated.utf16()), terminated.size() * 2) };
}

QJsonObject recordOf(const QString &root)
{
    return QJsonDocument::fromJson(TreeFixture::read(LegacyMigration::journalPath(root))).object();
}

// The earlier installation in "<temp>/Earlier" with its registrations, the user's own uninstall
// entry holding values of several types, and the new package staged beside the destination.
class EarlierMachine : public CrashSubject
{
public:
    EarlierMachine()
    {
        for (const QString &key : { uninstallEntry, innoEntry, productKey })
            UserRegistry::removeKey(key);
        UserRegistry::replaceValues(uninstallEntry, { textValue(QStringLiteral("DisplayName"), QStringLiteral("Brisa-Linker"), 1),
                                                      textValue(QStringLiteral("DisplayIcon"), QStringLiteral("%SystemRoot%\\x.ico"), 2),
                                                      { QStringLiteral("NoModify"), 4, QByteArray("\1\0\0\0", 4) } });
#ifdef Q_OS_WIN
        const QString exe = QStringLiteral(BRISA_OLD_LAYOUT_EXE);
        const QString registryRoot = QStringLiteral("HKEY_USERS\\") + DesktopUser::sid();
#else
        const QString exe; // the host takes every valid image for the earlier layout
        const QString registryRoot;
#endif
        m_ready = m_base.isValid() && FakeInstallation::makeEarlierInstallation(source(), exe, registryRoot);
        const TreeFixture::Files payload = TreeFixture::payload();
        for (auto it = payload.cbegin(); it != payload.cend(); ++it)
            m_ready = m_ready && TreeFixture::write(staging() + QLatin1Char('/') + it.key(), it.value());
        m_before = TreeFixture::snapshot(source());
        m_registry = readRegistry();
    }
    ~EarlierMachine() override
    {
        for (const QString &key : { uninstallEntry, innoEntry, productKey })
            UserRegistry::removeKey(key);
    }

    bool ready() const override { return m_ready; }
    QString base() const { return m_base.path(); }
    QString source() const { return m_base.path() + QStringLiteral("/Earlier"); }
    QString root() const { return source() + QStringLiteral("/BrisaLinker"); }
    QString staging() const { return root() + QStringLiteral(".installing-7-1"); }
    QString backup() const { return root() + QStringLiteral(".backup-legacy-0123456789abcdef0123456789abcdef"); }
    QString archive() const
    {
        const QStringList found = QDir(source()).entryList({ QStringLiteral("BrisaLinker.legacy-data-*") }, QDir::Dirs);
        return found.isEmpty() ? QString() : source() + QLatin1Char('/') + found.first();
    }

    // Begins, moves the package in and, when asked, commits: the state a crash or the pipeline
    // leaves before the clean-up.
    bool migrate(bool commit)
    {
        LegacyMigration::State state;
        InPlaceInstall::OverlayState overlay;
        return LegacyMigration::begin(root(), staging(), backup(), &state, nullptr, source())
            && InPlaceInstall::installStagedFilesInPlace(staging(), root(), backup(), &overlay, nullptr)
            && (!commit || LegacyMigration::commit(&state));
    }

    // Empty when the machine holds exactly the earlier installation (expectNew false), or exactly
    // the package with every component folder and user data file in the archive; else what is wrong.
    QString verdict(bool expectNew) const override
    {
        QMap<QString, QString> now = TreeFixture::snapshot(source());
        if (!expectNew) {
            // An emptied destination may stay, as after any first installation's rollback.
            if (now.value(QStringLiteral("BrisaLinker/")) == QLatin1String("dir") && !m_before.contains(QStringLiteral("BrisaLinker/")))
                now.remove(QStringLiteral("BrisaLinker/"));
            if (now != m_before)
                return QStringLiteral("the earlier installation is not exactly as it was");
            return readRegistry() == m_registry ? QString() : QStringLiteral("the registry is not exactly as it was");
        }
        const QString archiveName = QFileInfo(archive()).fileName();
        QMap<QString, QString> installed;
        QMap<QString, QString> archived;
        QStringList other;
        for (auto it = now.cbegin(); it != now.cend(); ++it) {
            const QString name = it.key().section(QLatin1Char('/'), 0, 0);
            const QString inner = it.key().section(QLatin1Char('/'), 1);
            if (it.key() == QLatin1String("BrisaLinker/.legacy-migration.json"))
                continue;
            if (name == QLatin1String("BrisaLinker") && !inner.isEmpty())
                installed.insert(inner, it.value());
            else if (name == archiveName && !inner.isEmpty())
                archived.insert(inner, it.value());
            else if (it.value() != QLatin1String("dir"))
                other.append(it.key());
        }
        QMap<QString, QString> userData = m_before;
        userData.removeIf([](const auto &entry) {
            return !entry.key().startsWith(QLatin1String("OBS-Studio/")) && !entry.key().startsWith(QLatin1String("Pellacore/"));
        });
        if (installed != TreeFixture::expected(TreeFixture::payload()))
            return QStringLiteral("the new installation is not exactly the package");
        if (archived != userData)
            return QStringLiteral("the archive does not hold every component folder and user data file");
        if (!other.isEmpty())
            return QStringLiteral("left behind: ") + other.join(QStringLiteral(", "));
        if (!readRegistry().at(1).isEmpty() || !readRegistry().at(2).isEmpty())
            return QStringLiteral("the earlier installer's registrations were not retired");
        return recordOf(root()).value(QStringLiteral("phase")).toString() == QLatin1String("complete")
            ? QString() : QStringLiteral("the migration is not complete");
    }

    ChildRun change(int dieAt, int cancelAfter) override
    {
        return runChild({ QStringLiteral("migrate"), source(), stepsPath(), QString::number(dieAt), QString::number(cancelAfter) }, stepsPath());
    }
    ChildRun recover(int dieAt) override
    {
        return runChild({ QStringLiteral("recover-migration"), source(), stepsPath(), QString::number(dieAt) }, stepsPath());
    }
    // The commit is the first record save after the registration; a cancel comes half way
    // through the package's moves.
    int commitStep(const QStringList &steps) const override
    {
        const int registered = int(steps.indexOf(QStringLiteral("write registration"))) + 1;
        const int commit = int(steps.indexOf(QStringLiteral("save record"), registered)) + 1;
        return registered > 10 && commit > registered ? commit : 0;
    }
    int cancelStep(const QStringList &steps) const override { return int(steps.indexOf(QStringLiteral("write registration"))) - 3; }

private:
    QString stepsPath() const { return m_base.path() + QStringLiteral("/steps.txt"); }

    QTemporaryDir m_base;
    bool m_ready = false;
    QMap<QString, QString> m_before;
    Registry m_registry;
};

enum Obstacle { NoObstacle, FileInUse, ChangedExecutable, ForeignEntry };

Mutation appended(const QString &key, const QString &value)
{
    return changed([key, value](QJsonObject &record) {
        QJsonArray list = record.value(key).toArray();
        list.append(value);
        record.insert(key, list);
    });
}

const QString invalid = QStringLiteral("The legacy migration record is invalid; no cleanup was performed: ");
const QString otherAccount = QStringLiteral("Resume the interrupted migration using the Windows account that started it.");

} // namespace

std::unique_ptr<CrashSubject> migrationSubject()
{
    return std::make_unique<EarlierMachine>();
}

void JournalTest::migrationCleanup_data()
{
    QTest::addColumn<int>("obstacle");
    QTest::addColumn<bool>("completeAtFirst");
    QTest::addColumn<bool>("completeAtSecond");
    QTest::newRow("a committed migration is cleaned up in one run") << int(NoObstacle) << true << true;
    QTest::newRow("an old executable changed after begin is never deleted") << int(ChangedExecutable) << false << false;
#ifdef Q_OS_WIN
    QTest::newRow("an old uninstaller file in use is removed by the next run") << int(FileInUse) << false << true;
    QTest::newRow("an earlier entry naming another directory is kept") << int(ForeignEntry) << true << true;
#endif
}

void JournalTest::migrationCleanup()
{
    QFETCH(int, obstacle);
    QFETCH(bool, completeAtFirst);
    QFETCH(bool, completeAtSecond);
    EarlierMachine machine;
    QVERIFY(machine.ready());
    LegacyMigration::State state;
    QVERIFY(LegacyMigration::begin(machine.root(), machine.staging(), machine.backup(), &state, nullptr, machine.source()));
    const QByteArray begun = TreeFixture::read(LegacyMigration::journalPath(machine.root()));
    qsizetype at = -1;
    for (const char *key : { "schema", "id", "phase", "root", "staging", "backup", "archive", "sourceRoot", "sourceExecutables", "files",
                             "createdDirectories", "directories", "uninstallFiles", "registrationOwner", "registrationSnapshot" }) {
        const qsizetype next = begun.indexOf(QByteArray("\"") + key + "\":");
        QVERIFY2(next > at, key);
        at = next;
    }
    QVERIFY(!machine.archive().isEmpty() && !QFileInfo::exists(machine.source() + QStringLiteral("/OBS-Studio")));
    InPlaceInstall::OverlayState overlay;
    QVERIFY(InPlaceInstall::installStagedFilesInPlace(machine.staging(), machine.root(), machine.backup(), &overlay, nullptr));
    QVERIFY(LegacyMigration::commit(&state));
    for (const char *dropped : { "files", "createdDirectories", "registrationSnapshot" })
        QVERIFY2(!recordOf(machine.root()).contains(QLatin1String(dropped)), dropped);
#ifdef Q_OS_WIN
    QVERIFY(GetFileAttributesW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(LegacyMigration::journalPath(machine.root())).utf16()))
            & FILE_ATTRIBUTE_HIDDEN);
    HANDLE held = INVALID_HANDLE_VALUE;
#endif
    const QString uninstallData = machine.source() + QStringLiteral("/unins000.dat");
    if (obstacle == ChangedExecutable)
        QVERIFY(TreeFixture::write(machine.source() + QStringLiteral("/updater.exe"), "replaced by the user"));
#ifdef Q_OS_WIN
    if (obstacle == FileInUse) {
        held = CreateFileW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(uninstallData).utf16()), GENERIC_READ, 0, nullptr,
                           OPEN_EXISTING, 0, nullptr);
        QVERIFY(held != INVALID_HANDLE_VALUE);
    }
#endif
    if (obstacle == ForeignEntry)
        UserRegistry::replaceValues(innoEntry, { textValue(QStringLiteral("InstallLocation"), QStringLiteral("D:\\Elsewhere\\"), 1),
                                                 textValue(QStringLiteral("UninstallString"), QStringLiteral("\"D:\\Elsewhere\\unins000.exe\""), 1) });

    const LegacyMigration::Cleanup first = LegacyMigration::finish(machine.root());
    QCOMPARE(first.complete, completeAtFirst);
    QCOMPARE(first.notices.value(0), QStringLiteral("Previous OBS/Pellacore files were preserved at:\n%1").arg(QDir::toNativeSeparators(machine.archive())));
    QCOMPARE(recordOf(machine.root()).value(QStringLiteral("phase")).toString(), completeAtFirst ? QStringLiteral("complete") : QStringLiteral("committed"));
    if (obstacle == FileInUse) {
        QCOMPARE(first.notices.value(1), QStringLiteral("Some old files could not be removed and will be retried on the next installation:\n%1")
                                             .arg(QDir::toNativeSeparators(uninstallData)));
#ifdef Q_OS_WIN
        CloseHandle(held);
#endif
    }
    if (!completeAtFirst)
        QVERIFY(first.messages.constLast().startsWith(QStringLiteral("Legacy cleanup remains pending: ")));

    const LegacyMigration::Cleanup second = LegacyMigration::finish(machine.root());
    QCOMPARE(second.complete, completeAtSecond);
    if (obstacle == ChangedExecutable)
        QCOMPARE(TreeFixture::read(machine.source() + QStringLiteral("/updater.exe")), QByteArray("replaced by the user"));
    else if (obstacle == ForeignEntry)
        QCOMPARE(UserRegistry::text(readRegistry().at(1), QStringLiteral("InstallLocation")), QStringLiteral("D:\\Elsewhere\\"));
    else
        QCOMPARE(machine.verdict(true), QString());
}

void JournalTest::hostileMigrationRecordsAreKept_data()
{
    QTest::addColumn<bool>("committed");
    QTest::addColumn<Mutation>("mutation");
    QTest::addColumn<QString>("message");
    QTest::newRow("an uninstaller file unins1000.exe")
        << true << appended(QStringLiteral("uninstallFiles"), QStringLiteral("unins1000.exe"))
        << invalid + QStringLiteral("The legacy migration contains an unknown uninstall file.");
    QTest::newRow("a component directory that is not one of the earlier product's")
        << true << appended(QStringLiteral("directories"), QStringLiteral("Documents"))
        << invalid + QStringLiteral("The legacy migration contains an unknown component directory.");
    QTest::newRow("a source root that is not the destination's parent")
        << true << changed([](QJsonObject &record) {
               record.insert(QStringLiteral("sourceRoot"), QFileInfo(record.value(QStringLiteral("sourceRoot")).toString()).path());
           })
        << invalid + QStringLiteral("The legacy migration source is not the destination's direct parent.");
    QTest::newRow("a committed record of another Windows account")
        << true << changed([](QJsonObject &record) { record.insert(QStringLiteral("registrationOwner"), QStringLiteral("S-1-5-21-9-9-9-1001")); })
        << otherAccount;
    QTest::newRow("an interrupted record of another Windows account")
        << false << changed([](QJsonObject &record) { record.insert(QStringLiteral("registrationOwner"), QStringLiteral("S-1-5-21-9-9-9-1001")); })
        << otherAccount;
    QTest::newRow("a truncated record")
        << false << Mutation([](const QJsonObject &record) { return QJsonDocument(record).toJson(QJsonDocument::Compact).chopped(40); })
        << QStringLiteral("Unable to read the legacy migration record: ");
    const QString unsafePlan = invalid + QStringLiteral("The legacy migration contains an unsafe or incomplete file plan.");
    QTest::newRow("a plan path leaving the root") << false << setFirstFile(QStringLiteral("path"), QStringLiteral("../escape.txt")) << unsafePlan;
    QTest::newRow("a plan path with a colon") << false << setFirstFile(QStringLiteral("path"), QStringLiteral("a:b.txt")) << unsafePlan;
    QTest::newRow("a plan path with a control character") << false << setFirstFile(QStringLiteral("path"), QStringLiteral("a\u0007b.txt")) << unsafePlan;
    QTest::newRow("a digest one digit short") << false << setFirstFile(QStringLiteral("newSha256"), QString(63, QLatin1Char('a'))) << unsafePlan;
    QTest::newRow("a created directory leaving the root")
        << false << appended(QStringLiteral("createdDirectories"), QStringLiteral("../outside"))
        << invalid + QStringLiteral("The legacy migration contains an unsafe directory path.");
}

void JournalTest::hostileMigrationRecordsAreKept()
{
    QFETCH(bool, committed);
    QFETCH(Mutation, mutation);
    QFETCH(QString, message);
    EarlierMachine machine;
    QVERIFY(machine.ready());
    QVERIFY(machine.migrate(committed));
    const QString path = LegacyMigration::journalPath(machine.root());
    const QByteArray hostile = mutation(recordOf(machine.root()));
    QVERIFY(QFile::remove(path) && TreeFixture::write(path, hostile));
    const QMap<QString, QString> disk = TreeFixture::snapshot(machine.base());
    const Registry registry = readRegistry();

    QString error;
    QVERIFY(!LegacyMigration::recover(machine.root(), &error));
    QVERIFY2(error.startsWith(message), qPrintable(error));
    const LegacyMigration::Cleanup cleanup = LegacyMigration::finish(machine.root());
    QVERIFY(!cleanup.complete && cleanup.notices.isEmpty());
    QCOMPARE(cleanup.messages.value(0), error);
    QCOMPARE(TreeFixture::snapshot(machine.base()), disk);
    QCOMPARE(readRegistry(), registry);
    QCOMPARE(TreeFixture::read(path), hostile);
}
