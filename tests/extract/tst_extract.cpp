#include "extract/archive_extractor.h"
#include "extract/crc32.h"
#include "zip_corpus.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTest>

using ZipCorpus::Entry;

namespace {

using Entries = QList<Entry>;

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every path below root with its size, links not followed, so a write outside staging shows.
QStringList snapshot(const QString &root, const QString &skip)
{
    QStringList entries;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (path == skip || path.startsWith(skip + QLatin1Char('/')))
            continue;
        entries.append(path + QLatin1Char(' ') + QString::number(it.fileInfo().size()));
    }
    entries.sort();
    return entries;
}

QStringList filesBelow(const QString &root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(QDir(root).relativeFilePath(it.next()));
    files.sort();
    return files;
}

QByteArray zeros(qsizetype size)
{
    return QByteArray(size, '\0');
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
    void unreadablePackage_data();
    void unreadablePackage();
    void declaredSizeBeyondFreeSpaceWritesNothing();
    void signalsReportProgressAndLists();
    void cancelInsideLargeEntryDeletesPartialFile();
    void cancelThroughObjectThenExtractAgain();
    void payload_data();
    void payload();

private:
    QTemporaryDir m_temp;
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
    QTest::newRow("parent") << QByteArray("../x") << QString();
    QTest::newRow("escape through a subdirectory") << QByteArray("a/../../x") << QString();
    QTest::newRow("bare dot-dot") << QByteArray("..") << QString();
    QTest::newRow("absolute posix") << QByteArray("/etc/x") << QString();
    QTest::newRow("drive absolute") << QByteArray("C:/x") << QString();
    QTest::newRow("drive relative") << QByteArray("C:x") << QString();
    QTest::newRow("alternate data stream") << QByteArray("x:stream") << QString();
    QTest::newRow("backslash parent") << QByteArray("..\\x") << QString();
    QTest::newRow("unc share") << QByteArray("\\\\server\\share\\x") << QString();
    QTest::newRow("leading backslash") << QByteArray("\\x") << QString();
    QTest::newRow("513 bytes") << QByteArray(513, 'n') << QString();
    QTest::newRow("invalid utf-8") << QByteArray("\xff\xfe.txt") << QString();
    QTest::newRow("overlong utf-8 slash") << QByteArray("a\xc0\xaf..\xc0\xafx") << QString();
    QTest::newRow("embedded nul") << QByteArray("a\0b", 3) << QString();
    QTest::newRow("control character") << QByteArray("a\x01" "b") << QString();
    QTest::newRow("delete character") << QByteArray("a\x7f" "b") << QString();
    QTest::newRow("device name") << QByteArray("CON") << QString();
    QTest::newRow("device name with extension") << QByteArray("nul.txt") << QString();
    QTest::newRow("serial port") << QByteArray("COM1") << QString();
    QTest::newRow("device name in a subdirectory") << QByteArray("bin/aux.dll") << QString();
    QTest::newRow("lower-case printer port") << QByteArray("lpt9.log") << QString();
    QTest::newRow("trailing dot") << QByteArray("name.") << QString();
    QTest::newRow("trailing blank") << QByteArray("name ") << QString();
    QTest::newRow("directory with trailing dot") << QByteArray("dir./x") << QString();
    QTest::newRow("wildcard") << QByteArray("a*b") << QString();
    QTest::newRow("pipe") << QByteArray("a|b") << QString();
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("console not a device when longer") << QByteArray("CONSOLE.txt") << QStringLiteral("CONSOLE.txt");
    QTest::newRow("COM0 lookalike with letters") << QByteArray("COMX") << QStringLiteral("COMX");
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
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("files");     // the result's file list on success
    QTest::addColumn<QStringList>("absent");    // paths that must not exist in staging afterwards
    QTest::addColumn<QString>("checkedFile");   // a file whose content is checked on success
    QTest::addColumn<QByteArray>("checkedContent");

    const auto unsafe = [](const char *row, const QByteArray &name) {
        QTest::newRow(row) << ZipCorpus::build({ ZipCorpus::stored("first.txt", "ok"), ZipCorpus::stored(name, "evil") })
                           << int(ArchiveExtractor::ZipUnsafePath) << QStringList() << QStringList() << QString()
                           << QByteArray();
    };
    unsafe("parent", "../x");
    unsafe("escape through a subdirectory", "a/../../x");
    unsafe("absolute posix", "/etc/x");
    unsafe("drive absolute", "C:/x");
    unsafe("drive relative", "C:x");
    unsafe("alternate data stream", "x:stream");
    unsafe("backslash parent", "..\\x");
    unsafe("unc share", "\\\\server\\share\\x");
    unsafe("513-byte name", QByteArray(513, 'n'));
    unsafe("non-utf-8 name", "\xff\xfe.txt");
    unsafe("latin-1 name", "caf\xe9.txt");
    unsafe("control character", "a\x01" "b");
    unsafe("newline in name", "a\nb");
    unsafe("device CON", "CON");
    unsafe("device nul.txt", "nul.txt");
    unsafe("device COM1", "COM1");
    unsafe("trailing dot", "name.");
    unsafe("trailing blank", "name ");
    unsafe("names that differ only in case", "FIRST.txt");
    unsafe("directory differing only in case", "First.txt/inner");
    unsafe("file entry naming the root", ".");

    const QByteArray longPath = QByteArray(100, 'd') + '/' + QByteArray(100, 'e') + '/' + QByteArray(100, 'f') + '/'
        + QByteArray(100, 'g') + '/' + QByteArray(108, 'h');
    QTest::newRow("512-byte name accepted") << ZipCorpus::build({ ZipCorpus::stored(longPath, "deep") })
                                            << int(ArchiveExtractor::ZipSuccess) << QStringList { QString::fromLatin1(longPath) }
                                            << QStringList() << QString::fromLatin1(longPath) << QByteArray("deep");
    // libzip refuses a central directory naming one entry twice, before anything is written.
    QTest::newRow("same name twice")
        << ZipCorpus::build({ ZipCorpus::stored("x.txt", "old"), ZipCorpus::stored("y.txt", "y"), ZipCorpus::stored("x.txt", "new") })
        << int(ArchiveExtractor::ZipInvalid) << QStringList() << QStringList { "x.txt", "y.txt" } << QString() << QByteArray();
    QTest::newRow("root directory entry skipped")
        << ZipCorpus::build({ ZipCorpus::directory("./"), ZipCorpus::stored("r.txt", "r") }) << int(ArchiveExtractor::ZipSuccess)
        << QStringList { "r.txt" } << QStringList() << QString("r.txt") << QByteArray("r");
    {
        Entry link = ZipCorpus::stored("link", "/etc/passwd");
        link.madeByHost = 3;
        link.externalAttributes = 0120777u << 16;
        QTest::newRow("unix symlink entry becomes a plain file")
            << ZipCorpus::build({ link }) << int(ArchiveExtractor::ZipSuccess) << QStringList { "link" } << QStringList()
            << QString("link") << QByteArray("/etc/passwd");
    }
    QTest::newRow("file then directory of the same name")
        << ZipCorpus::build({ ZipCorpus::stored("a", "file"), ZipCorpus::stored("a/b", "inner") })
        << int(ArchiveExtractor::ZipCannotCreateDirectory) << QStringList() << QStringList { "a/b" } << QString() << QByteArray();
    QTest::newRow("file then directory entry of the same name")
        << ZipCorpus::build({ ZipCorpus::stored("a", "file"), ZipCorpus::directory("a") })
        << int(ArchiveExtractor::ZipCannotCreateDirectory) << QStringList() << QStringList() << QString() << QByteArray();
    QTest::newRow("directory then file of the same name")
        << ZipCorpus::build({ ZipCorpus::directory("a"), ZipCorpus::stored("a", "file") })
        << int(ArchiveExtractor::ZipCannotWriteFile) << QStringList() << QStringList() << QString() << QByteArray();
    {
        Entry lie = ZipCorpus::deflated("big.bin", QByteArray(100000, 'z'));
        lie.declaredSize = 1000;
        lie.crcOverride = ZipCorpus::crc32(QByteArray(1000, 'z'));
        QTest::newRow("declared size smaller than the content")
            << ZipCorpus::build({ lie }) << int(ArchiveExtractor::ZipCannotExtract) << QStringList()
            << QStringList { "big.bin" } << QString() << QByteArray();
    }
    {
        Entry lie = ZipCorpus::deflated("short.bin", QByteArray(1000, 'z'));
        lie.declaredSize = 100000;
        QTest::newRow("declared size larger than the content")
            << ZipCorpus::build({ lie }) << int(ArchiveExtractor::ZipCannotExtract) << QStringList()
            << QStringList { "short.bin" } << QString() << QByteArray();
    }
    {
        Entry bad = ZipCorpus::stored("crc.bin", QByteArray(300000, 'c'));
        bad.crcOverride = 0x12345678;
        QTest::newRow("bad crc")
            << ZipCorpus::build({ ZipCorpus::stored("good.txt", "good"), bad }) << int(ArchiveExtractor::ZipCannotExtract)
            << QStringList() << QStringList { "crc.bin" } << QString() << QByteArray();
    }
    {
        Entry bad = ZipCorpus::deflated("crc.txt", QByteArray(5000, 'q'));
        bad.crcOverride = 1;
        QTest::newRow("bad crc on a deflated entry") << ZipCorpus::build({ bad }) << int(ArchiveExtractor::ZipCannotExtract)
                                                    << QStringList() << QStringList { "crc.txt" } << QString() << QByteArray();
    }
    {
        Entry encrypted = ZipCorpus::stored("secret.txt", QByteArray(64, 's'));
        encrypted.flags = 1;
        QTest::newRow("encrypted entry") << ZipCorpus::build({ encrypted }) << int(ArchiveExtractor::ZipCannotExtract)
                                         << QStringList() << QStringList { "secret.txt" } << QString() << QByteArray();
    }
    {
        Entry bomb = ZipCorpus::deflated("bomb.bin", zeros(64 << 20));
        const QByteArray archive = ZipCorpus::build({ bomb });
        QVERIFY(archive.size() < (1 << 20)); // the ratio is the point: well over 64 to 1
        QTest::newRow("high-ratio bomb is bounded by its declared size")
            << archive << int(ArchiveExtractor::ZipSuccess) << QStringList { "bomb.bin" } << QStringList() << QString()
            << QByteArray();
        Entry lying = bomb;
        lying.declaredSize = 4096;
        lying.crcOverride = ZipCorpus::crc32(zeros(4096));
        QTest::newRow("bomb declaring 4 KiB stops at 4 KiB")
            << ZipCorpus::build({ lying }) << int(ArchiveExtractor::ZipCannotExtract) << QStringList()
            << QStringList { "bomb.bin" } << QString() << QByteArray();
    }
    {
        Entry huge = ZipCorpus::stored("huge.bin");
        huge.method = 8;
        huge.data = QByteArray("\x03\x00", 2); // an empty final deflate block
        huge.declaredSize = qint64(1) << 50;
        huge.crcOverride = 0;
        huge.zip64 = true;
        QTest::newRow("zip64 declaring a petabyte fails the space check")
            << ZipCorpus::build({ ZipCorpus::stored("before.txt", "x"), huge }) << int(ArchiveExtractor::ZipNoSpace)
            << QStringList() << QStringList { "before.txt", "huge.bin" } << QString() << QByteArray();
    }
    {
        Entry zip64 = ZipCorpus::stored("small64.txt", "zip64 record");
        zip64.zip64 = true;
        QTest::newRow("honest zip64 sizes") << ZipCorpus::build({ zip64 }) << int(ArchiveExtractor::ZipSuccess)
                                            << QStringList { "small64.txt" } << QStringList() << QString("small64.txt")
                                            << QByteArray("zip64 record");
    }
    QTest::newRow("empty archive") << ZipCorpus::build({}) << int(ArchiveExtractor::ZipSuccess) << QStringList()
                                   << QStringList() << QString() << QByteArray();
    {
        const QByteArray whole = ZipCorpus::build({ ZipCorpus::stored("a.txt", QByteArray(4000, 'a')), ZipCorpus::stored("b.txt", "b") });
        QTest::newRow("truncated inside the central directory")
            << whole.left(whole.size() - 40) << int(ArchiveExtractor::ZipInvalid) << QStringList()
            << QStringList { "a.txt" } << QString() << QByteArray();
        QTest::newRow("truncated to half") << whole.left(whole.size() / 2) << int(ArchiveExtractor::ZipInvalid)
                                           << QStringList() << QStringList { "a.txt" } << QString() << QByteArray();
        QByteArray cut = whole;
        cut.remove(200, 1000); // entry data gone, the directory now points past the end
        QTest::newRow("entry data cut out") << cut << int(ArchiveExtractor::ZipInvalid) << QStringList()
                                            << QStringList { "a.txt" } << QString() << QByteArray();
    }
    QTest::newRow("not a zip at all") << QByteArray("PK\x03\x04 this is not an archive") << int(ArchiveExtractor::ZipInvalid)
                                      << QStringList() << QStringList() << QString() << QByteArray();
    // libzip reads a zero-byte file as an archive without entries; the package digest and the
    // product check after extraction are what refuse it.
    QTest::newRow("zero bytes is an empty archive") << QByteArray() << int(ArchiveExtractor::ZipSuccess) << QStringList()
                                                    << QStringList() << QString() << QByteArray();
    {
        Entries many;
        QStringList names;
        many.reserve(70000);
        for (int i = 0; i < 70000; ++i) {
            const QByteArray name = "d" + QByteArray::number(i / 1000) + "/f" + QByteArray::number(i);
            many.append(ZipCorpus::stored(name));
            names.append(QString::fromLatin1(name));
        }
        QTest::newRow("70 000 entries through a zip64 end record")
            << ZipCorpus::build(many) << int(ArchiveExtractor::ZipSuccess) << names << QStringList() << QString("d69/f69999")
            << QByteArray();
    }
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
    QVERIFY(root.isValid());
    const QString zipPath = root.filePath("package.zip");
    QVERIFY(writeFile(zipPath, archive));
    const QString staging = root.filePath("parent/staging");
    QVERIFY(QDir().mkpath(root.filePath("parent/sibling")));
    QVERIFY(writeFile(root.filePath("parent/sibling/keep.txt"), "keep"));
    const QStringList before = snapshot(root.path(), staging);

    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    const ArchiveExtractor::Result result = ArchiveExtractor::extractZip(zipPath, staging, cancel, processed, {});
    QCOMPARE(result.status, status);
    QCOMPARE(snapshot(root.path(), staging), before);
    for (const QString &path : std::as_const(absent))
        QVERIFY2(!QFileInfo::exists(QDir(staging).filePath(path)), qPrintable(path));
    // Nothing in staging is a link, whatever the archive declared.
    QDirIterator it(staging, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        QVERIFY2(!it.nextFileInfo().isSymLink(), qPrintable(it.filePath()));

    if (status == ArchiveExtractor::ZipSuccess) {
        QCOMPARE(result.files, files);
        QStringList sorted = files;
        sorted.sort();
        QCOMPARE(filesBelow(staging), sorted);
        if (!checkedFile.isEmpty()) {
            QFileInfo info(QDir(staging).filePath(checkedFile));
            QVERIFY(info.isFile() && !info.isSymLink());
            if (!checkedContent.isNull())
                QCOMPARE(readFile(info.filePath()), checkedContent);
        }
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
    QCOMPARE(failed.at(0).at(0).toString(), ArchiveExtractor::zipMessage(status));
    QVERIFY(!failed.at(0).at(0).toString().isEmpty());
    QCOMPARE(completed.size(), 0);
    QCOMPARE(snapshot(root.path(), staging), before);
}

void TestExtract::unreadablePackage_data()
{
    QTest::addColumn<QString>("what");
    QTest::newRow("missing package") << QStringLiteral("missing");
    QTest::newRow("package is a directory") << QStringLiteral("directory");
}

void TestExtract::unreadablePackage()
{
    QFETCH(QString, what);
    QTemporaryDir root;
    const QString zipPath = root.filePath("package.zip");
    if (what == QLatin1String("directory"))
        QVERIFY(QDir().mkpath(zipPath));
    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    const auto result = ArchiveExtractor::extractZip(zipPath, root.filePath("staging"), cancel, processed, {});
    QVERIFY(result.status == ArchiveExtractor::ZipCannotOpen || result.status == ArchiveExtractor::ZipInvalid);
    if (what == QLatin1String("missing"))
        QCOMPARE(result.status, int(ArchiveExtractor::ZipCannotOpen));
    QVERIFY(!QFileInfo::exists(root.filePath("staging")) || QDir(root.filePath("staging")).isEmpty());
}

void TestExtract::declaredSizeBeyondFreeSpaceWritesNothing()
{
    // Declared sizes just above what the volume has free: the check must use the central
    // directory's sizes before the first byte is written.
    QTemporaryDir root;
    const qint64 free = QStorageInfo(root.path()).bytesAvailable();
    QVERIFY(free > 0);
    Entry first = ZipCorpus::stored("first.txt", "written first if the check came late");
    Entry huge = ZipCorpus::stored("huge.bin");
    huge.method = 8;
    huge.data = QByteArray("\x03\x00", 2);
    huge.declaredSize = free + (qint64(1) << 30);
    huge.crcOverride = 0;
    huge.zip64 = true;
    const QString zipPath = root.filePath("space.zip");
    QVERIFY(writeFile(zipPath, ZipCorpus::build({ first, huge })));
    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    const auto result = ArchiveExtractor::extractZip(zipPath, root.filePath("staging"), cancel, processed, {});
    QCOMPARE(result.status, int(ArchiveExtractor::ZipNoSpace));
    QCOMPARE(processed.load(), qint64(0));
    QVERIFY(filesBelow(root.filePath("staging")).isEmpty());
}

void TestExtract::signalsReportProgressAndLists()
{
    QTemporaryDir root;
    const QByteArray big(3 << 20, 'b');
    const QString zipPath = root.filePath("package.zip");
    QVERIFY(writeFile(zipPath, ZipCorpus::build({ ZipCorpus::deflated("a/b/c.txt", "c"), ZipCorpus::stored("z.txt", big),
                                                  ZipCorpus::stored("a/./d.txt", "d"), ZipCorpus::directory("e/f"),
                                                  ZipCorpus::directory("./") })));
    const qint64 total = 1 + big.size() + 1;
    ArchiveExtractor extractor;
    QSignalSpy progress(&extractor, &ArchiveExtractor::progressChanged);
    QSignalSpy completed(&extractor, &ArchiveExtractor::completed);
    QSignalSpy failed(&extractor, &ArchiveExtractor::failed);
    const QString staging = root.filePath("staging");
    extractor.extract(zipPath, staging);
    QTRY_COMPARE_WITH_TIMEOUT(completed.size(), 1, 60000);
    QCOMPARE(failed.size(), 0);
    QCOMPARE(completed.at(0).at(0).toString(), staging);
    QCOMPARE(completed.at(0).at(1).value<QList<QString>>(), (QList<QString> { "a/b/c.txt", "z.txt", "a/d.txt" }));
    QCOMPARE(completed.at(0).at(2).value<QList<QString>>(), (QList<QString> { "a/b", "e/f", "a", "e" }));
    QCOMPARE(readFile(QDir(staging).filePath("a/d.txt")), QByteArray("d"));
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

void TestExtract::cancelInsideLargeEntryDeletesPartialFile()
{
    QTemporaryDir root;
    const QString zipPath = root.filePath("package.zip");
    QVERIFY(writeFile(zipPath, ZipCorpus::build({ ZipCorpus::stored("small.txt", "s"),
                                                  ZipCorpus::deflated("large.bin", zeros(32 << 20)) })));
    std::atomic<bool> cancel { false };
    std::atomic<qint64> processed { 0 };
    qint64 seenAtCancel = 0;
    const QString staging = root.filePath("staging");
    const auto result = ArchiveExtractor::extractZip(zipPath, staging, cancel, processed, [&](qint64 done, qint64) {
        if (done > 1 && !cancel.load()) {
            seenAtCancel = done;
            cancel.store(true);
        }
    });
    QCOMPARE(result.status, int(ArchiveExtractor::ZipCancelled));
    QVERIFY(seenAtCancel > 0 && seenAtCancel < (32 << 20));
    QVERIFY(!QFileInfo::exists(QDir(staging).filePath("large.bin")));
    QVERIFY(QFileInfo::exists(QDir(staging).filePath("small.txt")));
}

void TestExtract::cancelThroughObjectThenExtractAgain()
{
    QTemporaryDir root;
    const QString largeZip = root.filePath("large.zip");
    QVERIFY(writeFile(largeZip, ZipCorpus::build({ ZipCorpus::deflated("large.bin", zeros(256 << 20)) })));
    const QString smallZip = root.filePath("small.zip");
    QVERIFY(writeFile(smallZip, ZipCorpus::build({ ZipCorpus::stored("again.txt", "again") })));

    ArchiveExtractor extractor;
    QSignalSpy progress(&extractor, &ArchiveExtractor::progressChanged);
    QSignalSpy completed(&extractor, &ArchiveExtractor::completed);
    QSignalSpy failed(&extractor, &ArchiveExtractor::failed);
    const QString staging = root.filePath("staging");
    connect(&extractor, &ArchiveExtractor::progressChanged, &extractor, &ArchiveExtractor::cancel);
    extractor.extract(largeZip, staging);
    QTRY_VERIFY_WITH_TIMEOUT(progress.size() >= 1, 60000);
    extractor.waitForWorkers();
    QTRY_VERIFY_WITH_TIMEOUT(!extractor.isRunning(), 10000);
    QTest::qWait(50);
    QCOMPARE(completed.size(), 0);
    QCOMPARE(failed.size(), 0);
    QVERIFY(!QFileInfo::exists(QDir(staging).filePath("large.bin")));

    disconnect(&extractor, &ArchiveExtractor::progressChanged, &extractor, &ArchiveExtractor::cancel);
    extractor.extract(smallZip, staging);
    QTRY_COMPARE_WITH_TIMEOUT(completed.size(), 1, 60000);
    QCOMPARE(failed.size(), 0);
    QCOMPARE(completed.at(0).at(1).value<QList<QString>>(), QList<QString> { "again.txt" });
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
    const auto link = [](const QString &to, const QString &from) {
#ifdef Q_OS_WIN
        Q_UNUSED(to);
        Q_UNUSED(from);
        return false;
#else
        return QFile::link(to, from);
#endif
    };
    if (layout == QLatin1String("product")) {
        QVERIFY(writeFile(source + "/brisalinker.exe", "MZ"));
        QVERIFY(writeFile(source + "/sub/.hidden", "h"));
        QVERIFY(writeFile(source + "/sub/deep/lib.dll", "lib"));
    } else if (layout == QLatin1String("noexe")) {
        QVERIFY(writeFile(source + "/readme.txt", "r"));
    } else if (layout == QLatin1String("deepexe")) {
        QVERIFY(writeFile(source + "/bin/brisalinker.exe", "MZ"));
    } else if (layout == QLatin1String("dirlink") || layout == QLatin1String("filelink") || layout == QLatin1String("rootlink")) {
        QVERIFY(writeFile(root.filePath("outside/secret.txt"), "secret"));
        QVERIFY(writeFile(source + "/brisalinker.exe", "MZ"));
        QVERIFY(writeFile(source + "/a/b/file.txt", "f"));
        bool made = false;
        if (layout == QLatin1String("dirlink"))
            made = link(root.filePath("outside"), source + "/a/b/zz-link");
        else if (layout == QLatin1String("filelink"))
            made = link(root.filePath("outside/secret.txt"), source + "/a/secret.txt");
        else {
            made = link(source, root.filePath("payload-link"));
            source = root.filePath("payload-link");
        }
        if (!made) {
#ifdef Q_OS_WIN
            // Windows code cannot make links under Wine; the harness leaves a Unix symlink in
            // drive_c, which Windows sees as a reparse point.
            const QString fixture = QStringLiteral("C:/brisa-link-fixture");
            if (!QFileInfo(fixture + "/dir-link").exists())
                QSKIP("no link fixture in this prefix");
            source = layout == QLatin1String("rootlink") ? fixture + "/dir-link" : fixture;
#else
            QFAIL("cannot make a link");
#endif
        }
    }
    const QStringList outsideBefore = snapshot(root.filePath("outside"), QString("-"));

    std::atomic<bool> cancel { false };
    const ArchiveExtractor::Result result = copy ? ArchiveExtractor::copyPayload(source, target, cancel)
                                                 : ArchiveExtractor::scanPayload(source, cancel);
    QCOMPARE(result.status, status);
    if (status == 0)
        QCOMPARE(result.files, files);
    if (copy)
        QCOMPARE(filesBelow(target), files);
    QCOMPARE(snapshot(root.filePath("outside"), QString("-")), outsideBefore);

    // Through the object: the message for the code, or completed with the lists.
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
        QCOMPARE(failed.at(0).at(0).toString(), ArchiveExtractor::payloadMessage(status));
    }
}

QTEST_GUILESS_MAIN(TestExtract)
#include "tst_extract.moc"
