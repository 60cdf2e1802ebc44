#include "extract/archive_extractor.h"
#include "extract/crc32.h"
#include "support/test_files.h"
#include "support/zip_corpus.h"

#include <QSignalSpy>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using ZipCorpus::Entry;
using TestFiles::read;
using TestFiles::write;

namespace {

// What the user is told for each status of an archive and of a bundled payload; none on success.
const QStringList zipTexts { "", "Unable to open the downloaded ZIP package.", "The downloaded ZIP package is invalid.",
                             "The ZIP package contains an unsafe path.", "There is not enough disk space to install.",
                             "Unable to create the installation directory.", "Unable to write an installation file.",
                             "Unable to extract the downloaded ZIP package." };
const QStringList payloadTexts { "", "The bundled Brisa-Linker payload is missing.", "The bundled Brisa-Linker payload is invalid.",
                                 "The bundled payload contains a directory link." };

// Every path below root with its size, links not followed, so a write outside staging shows.
QStringList snapshot(const QString &root, const QString &skip)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (path != skip && !path.startsWith(skip + QLatin1Char('/')))
            entries.append(path + QLatin1Char(' ') + QString::number(it.fileInfo().size()));
    }
    entries.sort();
    return entries;
}

Entry changed(Entry entry, const std::function<void(Entry &)> &change)
{
    change(entry);
    return entry;
}

} // namespace

class TestExtract : public QObject
{
    Q_OBJECT

private slots:
    void safeEntryPath_data();
    void safeEntryPath();
    void crc32_data();
    void crc32();
    void hostileArchive_data();
    void hostileArchive();
    void cancelInsideLargeEntryDeletesPartialFile();
    void signalsAfterACancelledRun();
    void payload_data();
    void payload();
};

void TestExtract::safeEntryPath_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("expected");

    QTest::newRow("plain file") << QByteArray("a.txt") << QStringLiteral("a.txt");
    QTest::newRow("dot segment removed") << QByteArray("a/./b") << QStringLiteral("a/b");
    QTest::newRow("backslashes become slashes") << QByteArray("a\\b\\c.txt") << QStringLiteral("a/b/c.txt");
    QTest::newRow("inner dot-dot that stays inside") << QByteArray("a/b/../c") << QStringLiteral("a/c");
    QTest::newRow("doubled separator collapsed") << QByteArray("a//b") << QStringLiteral("a/b");
    QTest::newRow("staging root itself") << QByteArray("./") << QStringLiteral(".");
    QTest::newRow("utf-8 name kept") << QByteArray("r\xc3\xa9sum\xc3\xa9.txt") << QStringLiteral("résumé.txt");
    QTest::newRow("512 bytes accepted") << QByteArray(512, 'n') << QString(512, QLatin1Char('n'));
    QTest::newRow("console not a device when longer") << QByteArray("CONSOLE.txt") << QStringLiteral("CONSOLE.txt");
    QTest::newRow("COM0 lookalike with letters") << QByteArray("COMX") << QStringLiteral("COMX");
    // Refused: the staging root's escapes, what Windows cannot hold or reads as a device.
    const std::pair<const char *, QByteArray> refused[] = {
        { "parent", "../x" }, { "escape through a subdirectory", "a/../../x" }, { "bare dot-dot", ".." }, { "absolute posix", "/etc/x" },
        { "drive absolute", "C:/x" }, { "drive relative", "C:x" }, { "alternate data stream", "x:stream" }, { "backslash parent", "..\\x" },
        { "unc share", "\\\\server\\share\\x" }, { "leading backslash", "\\x" }, { "513 bytes", QByteArray(513, 'n') },
        { "invalid utf-8", "\xff\xfe.txt" }, { "overlong utf-8 slash", "a\xc0\xaf..\xc0\xafx" }, { "embedded nul", QByteArray("a\0b", 3) },
        { "control character", "a\x01" "b" }, { "newline", "a\nb" }, { "latin-1 name", "caf\xe9.txt" }, { "delete character", "a\x7f" "b" },
        { "device name", "CON" }, { "device name with extension", "nul.txt" }, { "serial port", "COM1" },
        { "device name in a subdirectory", "bin/aux.dll" }, { "lower-case printer port", "lpt9.log" }, { "trailing dot", "name." },
        { "trailing blank", "name " }, { "directory with trailing dot", "dir./x" }, { "wildcard", "a*b" }, { "pipe", "a|b" },
        { "empty", QByteArray() },
    };
    for (const auto &[tag, name] : refused)
        QTest::newRow(tag) << name << QString();
}

void TestExtract::safeEntryPath()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, expected);
    QCOMPARE(ArchiveExtractor::safeEntryPath(name), expected);
}

void TestExtract::crc32_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<qsizetype>("split"); // the stream is handed over in two blocks, cut here

    QByteArray random(3 << 20, Qt::Uninitialized);
    quint32 seed = 20;
    for (char &byte : random) {
        seed = seed * 1103515245u + 12345u;
        byte = char(seed >> 23);
    }
    QTest::newRow("empty stream") << QByteArray() << qsizetype(0);
    QTest::newRow("check value of the ZIP polynomial") << QByteArray("123456789") << qsizetype(4);
    QTest::newRow("63 bytes, below one folding step") << random.left(63) << qsizetype(0);
    QTest::newRow("exactly one folding step") << random.left(64) << qsizetype(64);
    QTest::newRow("one step and a ragged tail") << random.mid(1, 64 + 16 + 7) << qsizetype(0);
    QTest::newRow("blocks cut at odd offsets") << random.mid(3, 100000) << qsizetype(4097);
    QTest::newRow("megabytes split mid-block") << random.mid(5, (3 << 20) - 5) << qsizetype((1 << 20) + 33);
}

void TestExtract::crc32()
{
    QFETCH(QByteArray, data);
    QFETCH(qsizetype, split);
    const quint32 first = Crc32::update(0, data.constData(), split);
    QCOMPARE(Crc32::update(first, data.constData() + split, data.size() - split), ZipCorpus::crc32(data));
    if (QTest::currentDataTag() == QByteArrayLiteral("check value of the ZIP polynomial"))
        QCOMPARE(Crc32::update(0, data.constData(), data.size()), 0xCBF43926u);
}

void TestExtract::hostileArchive_data()
{
    QTest::addColumn<QByteArray>("archive"); // "missing": no package; "directory": a directory in its place
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("files");     // the result's file list on success
    QTest::addColumn<QStringList>("absent");    // paths that must not exist in staging afterwards
    QTest::addColumn<QString>("checkedFile");   // a file whose content is checked on success
    QTest::addColumn<QByteArray>("checkedContent");
    using namespace ZipCorpus;
    const auto row = [](const char *name, const QByteArray &archive, int status, const QStringList &files = {},
                        const QStringList &absent = {}, const QString &checked = {}, const QByteArray &content = {}) {
        QTest::newRow(name) << archive << status << files << absent << checked << content;
    };
    const auto unsafe = [&](const char *name, const QByteArray &entry) {
        row(name, build({ stored("first.txt", "ok"), stored(entry, "evil") }), ArchiveExtractor::ZipUnsafePath);
    };
    // Every name safeEntryPath refuses stops the extraction; one stands for them all.
    unsafe("parent", "../x");
    unsafe("names that differ only in case", "FIRST.txt");
    unsafe("directory differing only in case", "First.txt/inner");
    unsafe("file entry naming the root", ".");

    const QByteArray longPath = QByteArray(100, 'd') + '/' + QByteArray(100, 'e') + '/' + QByteArray(100, 'f') + '/'
        + QByteArray(100, 'g') + '/' + QByteArray(108, 'h');
    row("512-byte name accepted", build({ stored(longPath, "deep") }), 0, { QString::fromLatin1(longPath) }, {}, QString::fromLatin1(longPath), "deep");
    // libzip refuses a central directory naming one entry twice, before anything is written.
    row("same name twice", build({ stored("x.txt", "old"), stored("y.txt", "y"), stored("x.txt", "new") }), ArchiveExtractor::ZipInvalid, {}, { "x.txt", "y.txt" });
    // Small files are written behind the decoding, large ones at once: the later entry still wins,
    // even with many small files still to be written when the large one comes.
    const QByteArray large(2 << 20, 'L');
    QList<Entry> backlog;
    QStringList backlogNames;
    for (int i = 0; i < 1000; ++i) {
        backlog.append(stored("f/" + QByteArray::number(i), "f"));
        backlogNames.append(QString::fromLatin1(backlog.last().name));
    }
    row("a large entry replaces an earlier small one of the same path", build(backlog + QList<Entry> { stored("x.txt", "small"), deflated("./x.txt", large) }),
        0, backlogNames + QStringList { "x.txt" }, {}, "x.txt", large);
    row("a small entry replaces an earlier large one of the same path", build({ deflated("x.txt", large), stored("./x.txt", "small") }),
        0, { "x.txt" }, {}, "x.txt", "small");
    row("root directory entry skipped", build({ directory("./"), stored("r.txt", "r") }), 0, { "r.txt" }, {}, "r.txt", "r");
    const Entry link = changed(stored("link", "/etc/passwd"), [](Entry &e) { e.madeByHost = 3; e.externalAttributes = 0120777u << 16; });
    row("unix symlink entry becomes a plain file", build({ link }), 0, { "link" }, {}, "link", "/etc/passwd");
    row("file then directory of the same name", build({ stored("a", "file"), stored("a/b", "inner") }), ArchiveExtractor::ZipCannotCreateDirectory, {}, { "a/b" });
    row("file then directory entry of the same name", build({ stored("a", "file"), directory("a") }), ArchiveExtractor::ZipCannotCreateDirectory);
    // The file's failure is reported even when a later entry fails too, before the file was tried.
    row("directory then file of the same name", build({ directory("a"), stored("a", "file"), changed(stored("c", "c"), [](Entry &e) {
            e.crcOverride = 1; }) }), ArchiveExtractor::ZipCannotWriteFile);
    const int cannotExtract = ArchiveExtractor::ZipCannotExtract;
    row("declared size smaller than the content", build({ changed(deflated("big.bin", QByteArray(100000, 'z')), [](Entry &e) {
            e.declaredSize = 1000; e.crcOverride = ZipCorpus::crc32(QByteArray(1000, 'z')); }) }), cannotExtract, {}, { "big.bin" });
    row("declared size larger than the content", build({ changed(deflated("short.bin", QByteArray(1000, 'z')), [](Entry &e) {
            e.declaredSize = 100000; }) }), cannotExtract, {}, { "short.bin" });
    row("bad crc", build({ stored("good.txt", "good"), changed(stored("crc.bin", QByteArray(300000, 'c')), [](Entry &e) {
            e.crcOverride = 0x12345678; }) }), cannotExtract, {}, { "crc.bin" });
    row("bad crc on a deflated entry", build({ changed(deflated("crc.txt", QByteArray(5000, 'q')), [](Entry &e) { e.crcOverride = 1; }) }),
        cannotExtract, {}, { "crc.txt" });
    row("encrypted entry", build({ changed(stored("secret.txt", QByteArray(64, 's')), [](Entry &e) { e.flags = 1; }) }), cannotExtract, {}, { "secret.txt" });
    const Entry bomb = deflated("bomb.bin", QByteArray(64 << 20, '\0'));
    QVERIFY(build({ bomb }).size() < (1 << 20)); // the ratio is the point: well over 64 to 1
    row("high-ratio bomb is bounded by its declared size", build({ bomb }), 0, { "bomb.bin" });
    row("bomb declaring 4 KiB stops at 4 KiB", build({ changed(bomb, [](Entry &e) {
            e.declaredSize = 4096; e.crcOverride = ZipCorpus::crc32(QByteArray(4096, '\0')); }) }), cannotExtract, {}, { "bomb.bin" });
    // An empty final deflate block declaring far more than any volume holds.
    const auto huge = [](qint64 size) {
        return changed(stored("huge.bin", QByteArray("\x03\x00", 2)), [size](Entry &e) { e.method = 8; e.declaredSize = size; e.crcOverride = 0; e.zip64 = true; });
    };
    row("zip64 declaring a petabyte fails the space check", build({ stored("before.txt", "x"), huge(qint64(1) << 50) }),
        ArchiveExtractor::ZipNoSpace, {}, { "before.txt", "huge.bin" });
    // Just above what the volume has free: the check must use the central directory's sizes
    // before the first byte is written.
    row("declared size just beyond the free space writes nothing", build({ stored("first.txt", "written first if the check came late"),
        huge(QStorageInfo(QDir::tempPath()).bytesAvailable() + (qint64(1) << 30)) }), ArchiveExtractor::ZipNoSpace, {}, { "first.txt", "huge.bin" });
    row("honest zip64 sizes", build({ changed(stored("small64.txt", "zip64 record"), [](Entry &e) { e.zip64 = true; }) }), 0,
        { "small64.txt" }, {}, "small64.txt", "zip64 record");
    row("empty archive", build({}), 0);
    const QByteArray whole = build({ stored("a.txt", QByteArray(4000, 'a')), stored("b.txt", "b") });
    row("truncated inside the central directory", whole.left(whole.size() - 40), ArchiveExtractor::ZipInvalid, {}, { "a.txt" });
    row("truncated to half", whole.left(whole.size() / 2), ArchiveExtractor::ZipInvalid, {}, { "a.txt" });
    row("entry data cut out", QByteArray(whole).remove(200, 1000), ArchiveExtractor::ZipInvalid, {}, { "a.txt" }); // the directory points past the end
    row("not a zip at all", "PK\x03\x04 this is not an archive", ArchiveExtractor::ZipInvalid);
    // libzip reads a zero-byte file as an archive without entries; the package digest and the
    // product check after extraction are what refuse it.
    row("zero bytes is an empty archive", QByteArray(), 0);
    row("missing package", "missing", ArchiveExtractor::ZipCannotOpen);
    row("package is a directory", "directory", ArchiveExtractor::ZipCannotOpen);
    QList<Entry> many;
    QStringList names;
    for (int i = 0; i < 70000; ++i) {
        many.append(stored("d" + QByteArray::number(i / 1000) + "/f" + QByteArray::number(i)));
        names.append(QString::fromLatin1(many.last().name));
    }
    row("70 000 entries through a zip64 end record", build(many), 0, names, {}, "d69/f69999");
}

void TestExtract::hostileArchive()
{
    QFETCH(QByteArray, archive);
    QFETCH(int, status);
    QFETCH(QStringList, files);
    QFETCH(QStringList, absent);
    QFETCH(QString, checkedFile);
    QFETCH(QByteArray, checkedContent);
    QTemporaryDir root;
    const QString zipPath = root.filePath("package.zip");
    QVERIFY(archive == "missing" || (archive == "directory" ? QDir().mkpath(zipPath) : write(zipPath, archive)));
    const QString staging = root.filePath("parent/staging");
    QVERIFY(write(root.filePath("parent/sibling/keep.txt"), "keep"));
    const QStringList before = snapshot(root.path(), staging);

    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    const ArchiveExtractor::Result result = ArchiveExtractor::extractZip(zipPath, staging, cancel, processed, {});
    QCOMPARE(result.status, status);
    QCOMPARE(snapshot(root.path(), staging), before);
    for (const QString &path : std::as_const(absent))
        QVERIFY2(!QFileInfo::exists(QDir(staging).filePath(path)), qPrintable(path));
    // Failures found before the first entry leave nothing behind.
    if (status == ArchiveExtractor::ZipNoSpace || status == ArchiveExtractor::ZipCannotOpen || status == ArchiveExtractor::ZipInvalid)
        QVERIFY(processed.load() == 0 && TestFiles::below(staging).isEmpty());
    // Nothing in staging is a link, whatever the archive declared.
    QDirIterator it(staging, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        QVERIFY2(!it.nextFileInfo().isSymLink(), qPrintable(it.filePath()));

    if (status == ArchiveExtractor::ZipSuccess) {
        QCOMPARE(result.files, files);
        QStringList sorted = files;
        sorted.sort();
        QCOMPARE(TestFiles::below(staging), sorted);
        const QFileInfo info(QDir(staging).filePath(checkedFile));
        QVERIFY(checkedFile.isEmpty() || (info.isFile() && !info.isSymLink()));
        QVERIFY(checkedContent.isNull() || read(info.filePath()) == checkedContent);
        if (QTest::currentDataTag() == QByteArrayLiteral("high-ratio bomb is bounded by its declared size"))
            QCOMPARE(QFileInfo(QDir(staging).filePath("bomb.bin")).size(), qint64(64 << 20));
        return;
    }

    // The same archive through the object: the failure reaches the GUI thread as its message.
    QVERIFY(QDir(staging).removeRecursively());
    ArchiveExtractor extractor;
    QSignalSpy failed(&extractor, &ArchiveExtractor::failed);
    QSignalSpy completed(&extractor, &ArchiveExtractor::completed);
    extractor.extract(zipPath, staging);
    QTRY_COMPARE_WITH_TIMEOUT(failed.size(), 1, 60000);
    QCOMPARE(failed.at(0).at(0).toString(), zipTexts.at(status));
    QCOMPARE(completed.size(), 0);
    QCOMPARE(snapshot(root.path(), staging), before);
}

void TestExtract::cancelInsideLargeEntryDeletesPartialFile()
{
    QTemporaryDir root;
    const QString zipPath = root.filePath("package.zip");
    QVERIFY(write(zipPath, ZipCorpus::build({ ZipCorpus::stored("small.txt", "s"), ZipCorpus::deflated("large.bin", QByteArray(32 << 20, '\0')) })));
    qint64 seenAtCancel = 0;
    const QString staging = root.filePath("staging");
    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    const auto result = ArchiveExtractor::extractZip(zipPath, staging, cancel, processed, [&](qint64 done, qint64) {
        if (done > 1 && !cancel.load()) {
            seenAtCancel = done;
            cancel.store(true);
        }
    });
    QCOMPARE(result.status, int(ArchiveExtractor::ZipCancelled));
    QVERIFY(seenAtCancel > 0 && seenAtCancel < (32 << 20));
    QCOMPARE(TestFiles::below(staging), QStringList { "small.txt" });
}

// A run cancelled through the object leaves nothing and reports nothing; the next run reports
// growing progress up to the total and the lists of files and directories, deepest first.
void TestExtract::signalsAfterACancelledRun()
{
    QTemporaryDir root;
    const QString largeZip = root.filePath("large.zip");
    QVERIFY(write(largeZip, ZipCorpus::build({ ZipCorpus::deflated("large.bin", QByteArray(256 << 20, '\0')) })));
    const QByteArray big(3 << 20, 'b');
    const qint64 total = 1 + big.size() + 1;
    const QString zipPath = root.filePath("package.zip");
    QVERIFY(write(zipPath, ZipCorpus::build({ ZipCorpus::deflated("a/b/c.txt", "c"), ZipCorpus::stored("z.txt", big), ZipCorpus::stored("a/./d.txt", "d"),
                                              ZipCorpus::directory("e/f"), ZipCorpus::directory("./") })));
    ArchiveExtractor extractor;
    QSignalSpy progress(&extractor, &ArchiveExtractor::progressChanged);
    QSignalSpy completed(&extractor, &ArchiveExtractor::completed);
    QSignalSpy failed(&extractor, &ArchiveExtractor::failed);
    const QString staging = root.filePath("staging");
    const QMetaObject::Connection cancelling = connect(&extractor, &ArchiveExtractor::progressChanged, &extractor, &ArchiveExtractor::cancel);
    extractor.extract(largeZip, staging);
    QTRY_VERIFY_WITH_TIMEOUT(progress.size() >= 1, 60000);
    extractor.waitForWorkers();
    QTRY_VERIFY_WITH_TIMEOUT(!extractor.isRunning(), 10000);
    QTest::qWait(50);
    QCOMPARE(completed.size() + failed.size(), 0);
    QVERIFY(!QFileInfo::exists(QDir(staging).filePath("large.bin")));

    disconnect(cancelling);
    progress.clear();
    extractor.extract(zipPath, staging);
    QTRY_COMPARE_WITH_TIMEOUT(completed.size(), 1, 60000);
    QCOMPARE(failed.size(), 0);
    QCOMPARE(completed.at(0).at(0).toString(), staging);
    QCOMPARE(completed.at(0).at(1).value<QList<QString>>(), (QList<QString> { "a/b/c.txt", "z.txt", "a/d.txt" }));
    QCOMPARE(completed.at(0).at(2).value<QList<QString>>(), (QList<QString> { "a/b", "e/f", "a", "e" }));
    QCOMPARE(read(QDir(staging).filePath("a/d.txt")), QByteArray("d"));
    QVERIFY(progress.size() >= 2);
    qint64 last = 0;
    for (const QList<QVariant> &report : std::as_const(progress)) {
        QCOMPARE(report.at(1).toLongLong(), total);
        QVERIFY(report.at(0).toLongLong() >= last);
        last = report.at(0).toLongLong();
    }
    QCOMPARE(last, total);
    QVERIFY(!extractor.isRunning());
}

void TestExtract::payload_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<bool>("copy");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("files");
    const QStringList product { "brisalinker.exe", "sub/.hidden", "sub/deep/lib.dll" };
    QTest::newRow("copy: hidden files copied, links none") << "product" << true << 0 << product;
    QTest::newRow("scan: lists in place") << "product" << false << 0 << product;
    QTest::newRow("copy: missing source is missing, not invalid") << "missing" << true << 1 << QStringList();
    QTest::newRow("scan: missing source is missing, not invalid") << "missing" << false << 1 << QStringList();
    QTest::newRow("copy: no product executable, rejected after copy") << "noexe" << true << 2 << QStringList { "readme.txt" };
    QTest::newRow("scan: no product executable") << "noexe" << false << 2 << QStringList();
    QTest::newRow("copy: product executable only deeper down") << "deepexe" << true << 2 << QStringList { "bin/brisalinker.exe" };
    QTest::newRow("copy: directory link deep inside") << "dirlink" << true << 3 << QStringList();
    QTest::newRow("scan: directory link deep inside") << "dirlink" << false << 3 << QStringList();
    QTest::newRow("copy: file link") << "filelink" << true << 3 << QStringList();
    QTest::newRow("copy: source itself a link") << "rootlink" << true << 3 << QStringList();
}

void TestExtract::payload()
{
    QFETCH(QString, layout);
    QFETCH(bool, copy);
    QFETCH(int, status);
    QFETCH(QStringList, files);
    QTemporaryDir root;
    QString source = root.filePath("payload");
    const QString target = root.filePath("target");
    if (layout == QLatin1String("product"))
        QVERIFY(write(source + "/brisalinker.exe", "MZ") && write(source + "/sub/.hidden", "h") && write(source + "/sub/deep/lib.dll", "lib"));
    else if (layout == QLatin1String("noexe"))
        QVERIFY(write(source + "/readme.txt", "r"));
    else if (layout == QLatin1String("deepexe"))
        QVERIFY(write(source + "/bin/brisalinker.exe", "MZ"));
    if (layout.endsWith(QLatin1String("link"))) {
        QVERIFY(write(root.filePath("outside/secret.txt"), "secret") && write(source + "/brisalinker.exe", "MZ") && write(source + "/a/b/file.txt", "f"));
#ifdef Q_OS_WIN
        // Windows code cannot make links under Wine; the harness leaves a Unix symlink in drive_c,
        // which Windows sees as a reparse point.
        const QString fixture = QStringLiteral("C:/brisa-link-fixture");
        if (!QFileInfo(fixture + "/dir-link").exists())
            QSKIP("no link fixture in this prefix");
        source = layout == QLatin1String("rootlink") ? fixture + "/dir-link" : fixture;
#else
        if (layout == QLatin1String("dirlink"))
            QVERIFY(QFile::link(root.filePath("outside"), source + "/a/b/zz-link"));
        else if (layout == QLatin1String("filelink"))
            QVERIFY(QFile::link(root.filePath("outside/secret.txt"), source + "/a/secret.txt"));
        else
            QVERIFY(QFile::link(source, root.filePath("payload-link")));
        source = layout == QLatin1String("rootlink") ? root.filePath("payload-link") : source;
#endif
    }
    const QStringList outsideBefore = snapshot(root.filePath("outside"), QString("-"));

    std::atomic<bool> cancel { false };
    const ArchiveExtractor::Result result = copy ? ArchiveExtractor::copyPayload(source, target, cancel) : ArchiveExtractor::scanPayload(source, cancel);
    QCOMPARE(result.status, status);
    if (status == 0)
        QCOMPARE(result.files, files);
    if (copy)
        QCOMPARE(TestFiles::below(target), files);
    QCOMPARE(snapshot(root.filePath("outside"), QString("-")), outsideBefore);

    // Through the object: the user's message, or completed with the lists.
    QVERIFY(QDir(target).removeRecursively() || !QFileInfo::exists(target));
    ArchiveExtractor extractor;
    QSignalSpy completed(&extractor, &ArchiveExtractor::completed);
    QSignalSpy failed(&extractor, &ArchiveExtractor::failed);
    if (copy)
        extractor.copyDirectory(source, target);
    else
        extractor.scanDirectory(source);
    QTRY_COMPARE_WITH_TIMEOUT(completed.size() + failed.size(), 1, 30000);
    if (status == 0) {
        QCOMPARE(completed.at(0).at(0).toString(), copy ? target : source);
        QCOMPARE(completed.at(0).at(1).value<QList<QString>>(), files);
        QCOMPARE(completed.at(0).at(2).value<QList<QString>>(), (QList<QString> { "sub/deep", "sub" }));
    } else {
        QCOMPARE(failed.at(0).at(0).toString(), payloadTexts.at(status));
    }
}

QTEST_GUILESS_MAIN(TestExtract)
#include "tst_extract.moc"
