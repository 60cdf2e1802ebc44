// The migration of an installation of the earlier layout, on one built exactly as the earlier
// installer left it: its life from begin to the last clean-up, records that must not be acted
// on, and a real process killed at every change it makes to the disk and the registry.
#include "tst_journal.h"

#include "crash_child_run.h"
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
#include <functional>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

using Mutation = std::function<QByteArray(QJsonObject)>;
Q_DECLARE_METATYPE(Mutation)

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
class EarlierMachine
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
    ~EarlierMachine()
    {
        for (const QString &key : { uninstallEntry, innoEntry, productKey })
            UserRegistry::removeKey(key);
    }

    bool ready() const { return m_ready; }
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
    QString verdict(bool expectNew) const
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
        QMap<QString, QString> userData;
        for (auto it = m_before.cbegin(); it != m_before.cend(); ++it) {
            if (it.key().startsWith(QLatin1String("OBS-Studio/")) || it.key().startsWith(QLatin1String("Pellacore/")))
                userData.insert(it.key(), it.value());
        }
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

    ChildRun run(const QString &mode, int dieAt, int cancelAfter = -1)
    {
        const QString steps = m_base.path() + QStringLiteral("/steps.txt");
        QStringList arguments { mode, source(), steps, QString::number(dieAt) };
        if (cancelAfter >= 0)
            arguments.append(QString::number(cancelAfter));
        return runChild(arguments, steps);
    }

private:
    QTemporaryDir m_base;
    bool m_ready = false;
    QMap<QString, QString> m_before;
    Registry m_registry;
};

enum Obstacle { NoObstacle, FileInUse, ChangedExecutable, ForeignEntry };
enum CrashScenario { Migration, CancelledMigration, InterruptedRecovery };

Mutation changed(const std::function<void(QJsonObject &)> &change)
{
    return [change](QJsonObject record) {
        change(record);
        return QJsonDocument(record).toJson(QJsonDocument::Compact);
    };
}

Mutation appended(const QString &key, const QString &value)
{
    return changed([key, value](QJsonObject &record) {
        QJsonArray list = record.value(key).toArray();
        list.append(value);
        record.insert(key, list);
    });
}

Mutation firstFile(const QString &key, const QJsonValue &value)
{
    return changed([key, value](QJsonObject &record) {
        QJsonArray files = record.value(QStringLiteral("files")).toArray();
        QJsonObject file = files.at(0).toObject();
        file.insert(key, value);
        files.replace(0, file);
        record.insert(QStringLiteral("files"), files);
    });
}

const QString invalid = QStringLiteral("The legacy migration record is invalid; no cleanup was performed: ");
const QString otherAccount = QStringLiteral("Resume the interrupted migration using the Windows account that started it.");

} // namespace

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
    QTest::newRow("a plan path leaving the root") << false << firstFile(QStringLiteral("path"), QStringLiteral("../escape.txt")) << unsafePlan;
    QTest::newRow("a plan path with a colon") << false << firstFile(QStringLiteral("path"), QStringLiteral("a:b.txt")) << unsafePlan;
    QTest::newRow("a plan path with a control character") << false << firstFile(QStringLiteral("path"), QStringLiteral("a\u0007b.txt")) << unsafePlan;
    QTest::newRow("a digest one digit short") << false << firstFile(QStringLiteral("newSha256"), QString(63, QLatin1Char('a'))) << unsafePlan;
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

void JournalTest::migrationCrashEndsOldOrNew_data()
{
    QTest::addColumn<int>("scenario");
    QTest::newRow("a crash at any change of a migration, its commit and its clean-up") << int(Migration);
    QTest::newRow("a crash at any change of the rollback after a cancel") << int(CancelledMigration);
    QTest::newRow("a crash at any change of a recovery that is recovering a crash") << int(InterruptedRecovery);
}

void JournalTest::migrationCrashEndsOldOrNew()
{
    QFETCH(int, scenario);
    // An undisturbed run names every change; the commit is the first record save after the
    // registration, and a cancel is asked for half way through the package's moves.
    EarlierMachine dry;
    QVERIFY(dry.ready());
    const ChildRun undisturbed = dry.run(QStringLiteral("migrate"), 0, 0);
    QVERIFY2(undisturbed.finished && undisturbed.exitCode == 0, qPrintable(described(undisturbed)));
    QCOMPARE(dry.verdict(true), QString());
    const int registered = int(undisturbed.steps.indexOf(QStringLiteral("write registration"))) + 1;
    const int commitStep = int(undisturbed.steps.indexOf(QStringLiteral("save record"), registered)) + 1;
    QVERIFY(registered > 10 && commitStep > registered);
    const int cancelAfter = scenario == CancelledMigration ? registered - 4 : 0;
    int steps = int(undisturbed.steps.size());
    if (scenario == CancelledMigration) {
        EarlierMachine cancelled;
        QVERIFY(cancelled.ready());
        const ChildRun full = cancelled.run(QStringLiteral("migrate"), 0, cancelAfter);
        QVERIFY2(full.finished && full.exitCode == 3, qPrintable(described(full)));
        QCOMPARE(cancelled.verdict(false), QString());
        steps = int(full.steps.size());
    }

    int points = 0;
    if (scenario != InterruptedRecovery) {
        for (int point = cancelAfter + 1; point <= steps; ++point) {
            EarlierMachine machine;
            QVERIFY(machine.ready());
            const ChildRun crashed = machine.run(QStringLiteral("migrate"), point, cancelAfter);
            QVERIFY2(crashed.died, qPrintable(QStringLiteral("no crash at step %1: %2").arg(point).arg(described(crashed))));
            const ChildRun recovered = machine.run(QStringLiteral("recover-migration"), 0);
            QVERIFY2(recovered.finished && recovered.exitCode == 0, qPrintable(QStringLiteral("recovery after step %1: %2").arg(point).arg(described(recovered))));
            const QString wrong = machine.verdict(scenario == Migration && point >= commitStep);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("crash after step %1 (%2): %3").arg(point).arg(crashed.steps.value(point - 1), wrong)));
            ++points;
        }
    } else {
        // Just before the commit the recovery has the most to undo: every file, the components
        // and the registration.
        const int interruptedAt = commitStep - 1;
        EarlierMachine probe;
        QVERIFY(probe.ready() && probe.run(QStringLiteral("migrate"), interruptedAt, 0).died);
        const ChildRun recovery = probe.run(QStringLiteral("recover-migration"), 0);
        QVERIFY2(recovery.finished && recovery.exitCode == 0 && !recovery.steps.isEmpty(), qPrintable(described(recovery)));
        for (int point = 1; point <= recovery.steps.size(); ++point) {
            EarlierMachine machine;
            QVERIFY(machine.ready() && machine.run(QStringLiteral("migrate"), interruptedAt, 0).died);
            QVERIFY(machine.run(QStringLiteral("recover-migration"), point).died);
            const ChildRun recovered = machine.run(QStringLiteral("recover-migration"), 0);
            QVERIFY2(recovered.finished && recovered.exitCode == 0, qPrintable(described(recovered)));
            const QString wrong = machine.verdict(false);
            QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("recovery crash after step %1 (%2): %3").arg(point).arg(recovery.steps.at(point - 1), wrong)));
            ++points;
        }
    }
    m_crashPoints += points;
    qInfo("migration crash points in this row: %d", points);
}
