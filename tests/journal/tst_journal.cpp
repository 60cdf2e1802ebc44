#include "tst_journal.h"

#include "finalize/in_place_install.h"
#include "journal/overlay_transaction.h"
#include "journal/overlay_transaction_platform.h"
#include "support/tree_fixture.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#ifdef Q_OS_WIN
#include "system/desktop_user.h"
#include <windows.h>
#endif

namespace {

QByteArray compact(const QJsonObject &record)
{
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

// An installation whose payload is in place but whose record still says "preparing": exactly
// what the next start finds after a crash before the commit point.
bool interruptedInstall(TreeFixture *fixture, OverlayTransaction::State *state)
{
    if (!fixture->setUp(TreeFixture::installation(), TreeFixture::payload())
        || !OverlayTransaction::begin(fixture->root(), fixture->stage(), state))
        return false;
    InPlaceInstall::OverlayState overlay;
    return InPlaceInstall::installStagedFilesInPlace(fixture->stage(), fixture->root(),
                                                     state->record.value(QStringLiteral("backup")).toString(), &overlay, nullptr);
}

} // namespace

Mutation changed(const std::function<void(QJsonObject &)> &change)
{
    return [change](QJsonObject record) {
        change(record);
        return compact(record);
    };
}

Mutation setKey(const QString &key, const QJsonValue &value)
{
    return changed([key, value](QJsonObject &record) { record.insert(key, value); });
}

Mutation setFirstFile(const QString &key, const QJsonValue &value)
{
    return changed([key, value](QJsonObject &record) {
        QJsonArray files = record.value(QStringLiteral("files")).toArray();
        QJsonObject file = files.at(0).toObject();
        file.insert(key, value);
        files.replace(0, file);
        record.insert(QStringLiteral("files"), files);
    });
}

void JournalTest::initTestCase()
{
#ifndef Q_OS_WIN
    QVERIFY2(!qEnvironmentVariableIsEmpty("BRISA_HOST_DESKTOP_SID"), "the test environment names the desktop user");
#else
    // Windows loads the user's classes hive at sign-in; Wine has none until it is made.
    const std::wstring classes = DesktopUser::sid().toStdWString() + L"_Classes";
    HKEY key = nullptr;
    QCOMPARE(RegCreateKeyExW(HKEY_USERS, classes.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr), LONG(ERROR_SUCCESS));
    RegCloseKey(key);
#endif
}

void JournalTest::relativePaths_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("a nested file") << "1.4.20/res/app.pak" << true;
    QTest::newRow("a name with inner dots and blanks") << "OBS-Studio/bin/Brisa-Linker Streamer64.exe" << true;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("a parent reference") << "../outside.dll" << false;
    QTest::newRow("a parent reference in the middle") << "a/../../b" << false;
    QTest::newRow("a current-directory component") << "a/./b" << false;
    QTest::newRow("a doubled separator") << "a//b" << false;
    QTest::newRow("a trailing separator") << "a/" << false;
    QTest::newRow("absolute with a slash") << "/etc/passwd" << false;
    QTest::newRow("a drive letter") << "C:/Windows/win.ini" << false;
    QTest::newRow("an alternate data stream") << "file.txt:stream" << false;
    QTest::newRow("a backslash") << "a\\b" << false;
    QTest::newRow("a component ending in a dot") << "dir./file" << false;
    QTest::newRow("a component ending in a blank") << "dir /file" << false;
    QTest::newRow("a question mark") << "what?.txt" << false;
    QTest::newRow("a control character") << QString("a\x01z") << false;
    QTest::newRow("a device-style wildcard") << "a*b" << false;
}

void JournalTest::relativePaths()
{
    QFETCH(QString, path);
    QFETCH(bool, accepted);
    QCOMPARE(OverlayTransaction::relative(path), accepted);
}

void JournalTest::unsafePayloadsWriteNoRecord_data()
{
    QTest::addColumn<QString>("staged");
    QTest::addColumn<QString>("message");
#ifndef Q_OS_WIN
    QTest::newRow("a directory link in the payload") << "link" << "The payload contains a directory link.";
    QTest::newRow("a file name ending in a dot") << "plugins/evil." << "The payload contains an unsafe file path.";
    QTest::newRow("a directory name ending in a blank") << "evil /x.dll" << "The payload contains an unsafe file path.";
    QTest::newRow("a file name with a question mark") << "what?.dll" << "The payload contains an unsafe file path.";
#endif
    QTest::newRow("a record already in the root") << "record" << "An unfinished installation must be recovered before starting another transaction.";
    QTest::newRow("a root not named for the product") << "wrong-root" << "Unsafe installation transaction paths or user identity.";
    QTest::newRow("a stage that is not a sibling of the root") << "foreign-stage" << "Unsafe installation transaction paths or user identity.";
}

void JournalTest::unsafePayloadsWriteNoRecord()
{
    QFETCH(QString, staged);
    QFETCH(QString, message);
    TreeFixture fixture;
    QVERIFY(fixture.setUp(TreeFixture::installation(), TreeFixture::payload()));
    QString root = fixture.root();
    QString stage = fixture.stage();
    if (staged == QLatin1String("link")) {
        QVERIFY(QDir().mkpath(fixture.base() + "/elsewhere"));
        QVERIFY(QFile::link(fixture.base() + "/elsewhere", stage + "/plugins/link"));
    } else if (staged == QLatin1String("record")) {
        QVERIFY(TreeFixture::write(OverlayTransaction::path(root), "{}"));
    } else if (staged == QLatin1String("wrong-root")) {
        root = fixture.base() + "/Other";
        stage = fixture.base() + "/Other.installing-7-1";
        QVERIFY(QDir().mkpath(stage));
    } else if (staged == QLatin1String("foreign-stage")) {
        stage = fixture.base() + "/elsewhere/BrisaLinker.installing-7-1";
        QVERIFY(QDir().mkpath(stage));
    } else {
        QVERIFY(TreeFixture::write(stage + QLatin1Char('/') + staged, "payload"));
    }
    const QByteArray recordBefore = TreeFixture::read(OverlayTransaction::path(root));
    const auto rootBefore = TreeFixture::snapshot(root);
    OverlayTransaction::State state;
    QString error;
    QVERIFY(!OverlayTransaction::begin(root, stage, &state, &error));
    QCOMPARE(error, message);
    QVERIFY(!state.active);
    QCOMPARE(TreeFixture::read(OverlayTransaction::path(root)), recordBefore);
    QCOMPARE(TreeFixture::snapshot(root), rootBefore);
}

void JournalTest::hostileRecordsAreRefusedAndKept_data()
{
    QTest::addColumn<Mutation>("mutation");
    QTest::addColumn<QString>("message");
    const QString unreadable = QStringLiteral("Unable to read installation recovery record.");
    const QString invalid = QStringLiteral("Invalid installation recovery record; backups were preserved.");
    const QString plan = QStringLiteral("Invalid installation recovery file plan.");
    const QString directory = QStringLiteral("Invalid recovery directory.");
    const QString outside = QDir::tempPath();
    QTest::newRow("truncated JSON is unreadable") << Mutation([](QJsonObject r) { return compact(r).left(40); }) << unreadable;
    QTest::newRow("a JSON array is unreadable") << Mutation([](QJsonObject) { return QByteArray("[1,2]"); }) << unreadable;
    QTest::newRow("an empty file is unreadable") << Mutation([](QJsonObject) { return QByteArray(); }) << unreadable;
    QTest::newRow("schema 2 is invalid") << setKey("schema", 2) << invalid;
    QTest::newRow("schema given as text is invalid") << setKey("schema", "1") << invalid;
    QTest::newRow("an unknown phase is invalid") << setKey("phase", "rolling-back") << invalid;
    QTest::newRow("a stage outside the root's parent is invalid") << setKey("stage", outside + "/BrisaLinker.installing-7-1") << invalid;
    QTest::newRow("a stage with a malformed suffix is invalid") << setKey("stage", "X/BrisaLinker.installing-7") << invalid;
    QTest::newRow("a backup outside the root's parent is invalid") << changed([outside](QJsonObject &r) {
        r.insert("backup", outside + "/BrisaLinker.backup-transaction-" + r.value("id").toString());
    }) << invalid;
    QTest::newRow("a backup named for another transaction is invalid") << changed([](QJsonObject &r) {
        r.insert("backup", r.value("root").toString() + ".backup-transaction-" + QString(32, 'a'));
    }) << invalid;
    QTest::newRow("a backup path wandering through parent references to a foreign name is invalid") << changed([](QJsonObject &r) {
        r.insert("backup", r.value("root").toString() + "/../x/../BrisaLinker.backup-transaction-0" + r.value("id").toString());
    }) << invalid;
    QTest::newRow("an owner of another SID is invalid") << setKey("owner", "S-1-5-21-1-2-3-500") << invalid;
    QTest::newRow("a missing owner is invalid") << changed([](QJsonObject &r) { r.remove("owner"); }) << invalid;
    QTest::newRow("an upper-case id is invalid") << changed([](QJsonObject &r) { r.insert("id", r.value("id").toString().toUpper()); }) << invalid;
    QTest::newRow("a record naming another root is invalid") << changed([](QJsonObject &r) { r.insert("root", r.value("root").toString() + "2"); })
                                                             << invalid;
    QTest::newRow("a file path with a parent reference is refused") << setFirstFile("path", "../../victim.txt") << plan;
    QTest::newRow("an absolute file path is refused") << setFirstFile("path", "/etc/passwd") << plan;
    QTest::newRow("a file path with a backslash is refused") << setFirstFile("path", "plugins\\a.dll") << plan;
    QTest::newRow("hadOld given as text is refused") << setFirstFile("hadOld", "true") << plan;
    QTest::newRow("an upper-case new digest is refused") << setFirstFile("new", QString(64, 'A')) << plan;
    QTest::newRow("an old file without its digest is refused") << changed([](QJsonObject &r) {
        QJsonArray files = r.value("files").toArray();
        for (qsizetype i = 0; i < files.size(); ++i) {
            QJsonObject file = files.at(i).toObject();
            if (file.value("hadOld").toBool()) {
                file.insert("old", "");
                files.replace(i, file);
                break;
            }
        }
        r.insert("files", files);
    }) << plan;
    QTest::newRow("a file plan that is not an array is refused") << setKey("files", QJsonObject()) << plan;
    QTest::newRow("a created directory with a parent reference is refused") << setKey("created", QJsonArray { "1.4.20", ".." }) << directory;
}

void JournalTest::hostileRecordsAreRefusedAndKept()
{
    QFETCH(Mutation, mutation);
    QFETCH(QString, message);
    TreeFixture fixture;
    OverlayTransaction::State state;
    QVERIFY(interruptedInstall(&fixture, &state));
    QVERIFY(TreeFixture::write(OverlayTransaction::path(fixture.root()), mutation(state.record)));
    const QMap<QString, QString> before = TreeFixture::snapshot(fixture.base());

    QString error;
    QVERIFY(!OverlayTransaction::recover(fixture.root(), &error));
    QCOMPARE(error, message);
    QCOMPARE(TreeFixture::snapshot(fixture.base()), before); // nothing moved, deleted or rewritten
    // The refused record also blocks the next installation instead of being overwritten.
    OverlayTransaction::State next;
    QVERIFY(!OverlayTransaction::begin(fixture.root(), fixture.stage(), &next, &error));
    QCOMPARE(TreeFixture::snapshot(fixture.base()), before);
}

// A plain rename would silently overwrite on the host; a move onto anything that exists must
// fail and leave both sides as they were.
void JournalTest::movesNeverReplace_data()
{
    QTest::addColumn<bool>("fromDirectory");
    QTest::addColumn<bool>("toDirectory");
    QTest::newRow("a file onto a file") << false << false;
    QTest::newRow("a file onto a directory") << false << true;
    QTest::newRow("a directory onto a directory") << true << true;
    QTest::newRow("a directory onto a file") << true << false;
}

void JournalTest::movesNeverReplace()
{
    QFETCH(bool, fromDirectory);
    QFETCH(bool, toDirectory);
    TreeFixture fixture;
    QVERIFY(fixture.setUp({}, {}));
    const QString from = fixture.base() + "/from";
    const QString to = fixture.base() + "/to";
    QVERIFY(TreeFixture::write(fromDirectory ? from + "/inner" : from, "moved"));
    QVERIFY(TreeFixture::write(toDirectory ? to + "/inner" : to, "kept"));
    const auto before = TreeFixture::snapshot(fixture.base());
    QVERIFY(!OverlayTransactionPlatform::moveEntry(from, to));
    QCOMPARE(TreeFixture::snapshot(fixture.base()), before);
}

void JournalTest::recordSizeLimit_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<bool>("read");
    QTest::newRow("a record of exactly 32 MiB is read") << qint64(33554432) << true;
    QTest::newRow("a record one byte over 32 MiB is refused") << qint64(33554433) << false;
}

void JournalTest::recordSizeLimit()
{
    QFETCH(qint64, size);
    QFETCH(bool, read);
    TreeFixture fixture;
    OverlayTransaction::State state;
    QVERIFY(interruptedInstall(&fixture, &state));
    QByteArray bytes = compact(state.record);
    bytes.append(QByteArray(size - bytes.size(), ' '));
    QVERIFY(TreeFixture::write(OverlayTransaction::path(fixture.root()), bytes));
    OverlayTransaction::State loaded;
    QString error;
    QCOMPARE(OverlayTransaction::load(fixture.root(), &loaded, &error), read);
    if (!read)
        QCOMPARE(error, QStringLiteral("Unable to read installation recovery record."));
}

void JournalTest::foreignContentIsLeftAlone_data()
{
    QTest::addColumn<QString>("where");
    QTest::addColumn<QString>("file");
    QTest::newRow("an installed file rewritten by somebody else") << "root" << "plugins/a.dll";
    QTest::newRow("a new file rewritten by somebody else") << "root" << "plugins/B.dll";
    QTest::newRow("a backup whose digest is not the old one") << "backup" << "updater.exe";
}

void JournalTest::foreignContentIsLeftAlone()
{
    QFETCH(QString, where);
    QFETCH(QString, file);
    TreeFixture fixture;
    OverlayTransaction::State state;
    QVERIFY(interruptedInstall(&fixture, &state));
    const QString tampered = (where == QLatin1String("root") ? fixture.root() : fixture.backup()) + QLatin1Char('/') + file;
    QVERIFY(TreeFixture::write(tampered, "somebody else's content"));
    const QStringList contentsBefore = fixture.contents();
    const QByteArray record = TreeFixture::read(OverlayTransaction::path(fixture.root()));

    QString error;
    QVERIFY(!OverlayTransaction::recover(fixture.root(), &error));
    QVERIFY(error.startsWith(QStringLiteral("Installation recovery is incomplete. Preserve the recovery record and backup: ")));
    QCOMPARE(TreeFixture::read(tampered), QByteArray("somebody else's content"));
    QCOMPARE(TreeFixture::read(OverlayTransaction::path(fixture.root())), record);
    QCOMPARE(fixture.contents(), contentsBefore);
    // The untouched entries went back; a second attempt changes nothing more and still refuses.
    QCOMPARE(TreeFixture::read(fixture.root() + "/brisalinker.exe"), QByteArray("old launcher"));
    QVERIFY(!OverlayTransaction::recover(fixture.root(), &error));
    QCOMPARE(fixture.contents(), contentsBefore);
}

void JournalTest::recordLifecycle_data()
{
    QTest::addColumn<bool>("committed");
    QTest::newRow("a preparing record is rolled back to the old files") << false;
    QTest::newRow("a committed record is only retired") << true;
}

void JournalTest::recordLifecycle()
{
    QFETCH(bool, committed);
    TreeFixture fixture;
    OverlayTransaction::State state;
    QVERIFY(interruptedInstall(&fixture, &state));
    QVERIFY(OverlayTransaction::metadataStarted(&state));
    if (committed)
        QVERIFY(OverlayTransaction::commit(&state));
    QVERIFY(OverlayTransaction::recover(fixture.root()));
    QVERIFY(!QFileInfo::exists(OverlayTransaction::path(fixture.root())));
    const auto expected = committed ? TreeFixture::overlaid(TreeFixture::installation(), TreeFixture::payload())
                                  : TreeFixture::installation();
    QCOMPARE(TreeFixture::snapshot(fixture.root()), TreeFixture::expected(expected));
    // Recovery of a root without a record does nothing and succeeds.
    QVERIFY(OverlayTransaction::recover(fixture.root()));
    QString error;
    QVERIFY(!committed || !OverlayTransaction::rollback(&state, &error));
}

// Enough files that the digests are taken on several threads: every recorded digest must
// belong to its own path, and one file that cannot be read must still stop the transaction.
void JournalTest::manyFilesAreRecordedOneByOne_data()
{
    QTest::addColumn<int>("unreadable");
    QTest::newRow("every file readable") << -1;
    QTest::newRow("an old entry late in the list is a directory") << 397;
    QTest::newRow("the first old entry is a directory") << 0;
}

void JournalTest::manyFilesAreRecordedOneByOne()
{
    QFETCH(int, unreadable);
    TreeFixture::Files installed;
    TreeFixture::Files payload;
    QString blockedName;
    for (int i = 0; i < 400; ++i) {
        const QString name = QStringLiteral("dir%1/file%2.bin").arg(i % 7).arg(i, 3, 10, QLatin1Char('0'));
        payload.insert(name, QByteArray(100 + i * 37, char('a' + i % 26)) + QByteArray::number(i));
        if (i == unreadable)
            blockedName = name;
        else if (i % 3 != 1)
            installed.insert(name, "old " + QByteArray::number(i));
    }
    TreeFixture fixture;
    QVERIFY(fixture.setUp(installed, payload));
    const QString blocked = blockedName.isEmpty() ? QString() : fixture.root() + QLatin1Char('/') + blockedName;
    if (!blocked.isEmpty())
        QVERIFY(QDir().mkpath(blocked));
    const auto before = TreeFixture::snapshot(fixture.root());

    OverlayTransaction::State state;
    QString error;
    const bool begun = OverlayTransaction::begin(fixture.root(), fixture.stage(), &state, &error);
    if (!blocked.isEmpty()) {
        QVERIFY(!begun);
        QCOMPARE(error, QStringLiteral("Unable to verify transaction file: ") + blocked);
        QVERIFY(!QFileInfo::exists(OverlayTransaction::path(fixture.root())));
        QCOMPARE(TreeFixture::snapshot(fixture.root()), before);
        return;
    }
    QVERIFY2(begun, qPrintable(error));
    const auto oldDigests = TreeFixture::snapshot(fixture.root());
    const auto newDigests = TreeFixture::snapshot(fixture.stage());
    const QJsonArray files = state.record.value(QStringLiteral("files")).toArray();
    QCOMPARE(files.size(), payload.size());
    for (const QJsonValue &value : files) {
        const QJsonObject file = value.toObject();
        const QString path = file.value(QStringLiteral("path")).toString();
        QCOMPARE(file.value(QStringLiteral("new")).toString(), newDigests.value(path));
        QCOMPARE(file.value(QStringLiteral("hadOld")).toBool(), installed.contains(path));
        QCOMPARE(file.value(QStringLiteral("old")).toString(), oldDigests.value(path));
    }
    QVERIFY(OverlayTransaction::rollback(&state, &error));
    QCOMPARE(TreeFixture::snapshot(fixture.root()), before);
}

void JournalTest::damagedUninstallSnapshotKeepsTheRecord_data()
{
    // The snapshot is a count, then a name, a type tag and a value per entry.
    const auto snapshot = [](quint8 tag, const std::function<void(QDataStream &)> &value) {
        QByteArray bytes;
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_6_0);
        stream << quint32(1) << QStringLiteral("DisplayName") << tag;
        value(stream);
        return bytes;
    };
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("a text list claiming two billion entries")
        << snapshot(2, [](QDataStream &s) { s << quint32(0x80000002) << QStringLiteral("a"); });
    QTest::newRow("a text list cut short")
        << snapshot(2, [](QDataStream &s) { s << quint32(3) << QStringLiteral("a"); });
    QTest::newRow("an unknown type tag") << snapshot(9, [](QDataStream &s) { s << QStringLiteral("x"); });
    QTest::newRow("bytes after the last entry")
        << snapshot(1, [](QDataStream &s) { s << QStringLiteral("Brisa-Linker") << quint8(0); });
}

void JournalTest::damagedUninstallSnapshotKeepsTheRecord()
{
    QFETCH(QByteArray, data);
    TreeFixture fixture;
    OverlayTransaction::State state;
    QVERIFY(interruptedInstall(&fixture, &state));
    QVERIFY(OverlayTransaction::metadataStarted(&state));
    const QByteArray damaged = setKey(QStringLiteral("uninstall"), QJsonObject { { QStringLiteral("existed"), true },
                                                                               { QStringLiteral("data"), QString::fromLatin1(data.toBase64()) } })(state.record);
    QVERIFY(TreeFixture::write(OverlayTransaction::path(fixture.root()), damaged));

    // Refused without asking for the memory a damaged count claims; the record stays for a
    // later attempt and the old files are back (the new, empty directories wait with it).
    QString error;
    QVERIFY(!OverlayTransaction::recover(fixture.root(), &error));
    QCOMPARE(error, QStringLiteral("Invalid preserved uninstall metadata."));
    QCOMPARE(TreeFixture::read(OverlayTransaction::path(fixture.root())), damaged);
    const auto filesOnly = [](QMap<QString, QString> entries) {
        entries.removeIf([](const auto &entry) { return entry.value() == QLatin1String("dir"); });
        entries.remove(QStringLiteral(".install-transaction.json"));
        return entries;
    };
    QCOMPARE(filesOnly(TreeFixture::snapshot(fixture.root())), filesOnly(TreeFixture::expected(TreeFixture::installation())));
}

QTEST_GUILESS_MAIN(JournalTest)
