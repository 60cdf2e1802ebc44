// The ZIP side of ArchiveExtractor: a read callback over the package file, a first pass that
// sizes every entry, and a second pass that streams each large entry to its staging file in
// blocks and hands each small one, decoded, to a thread that creates and writes it.
#include "extract/archive_extractor.h"

#include "extract/queued_file_writer.h"
#include "extract/zip_entry_writer.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QStorageInfo>
#include <QStringDecoder>

#include <zip.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr qsizetype maximumNameBytes = 512;
constexpr qint64 readAheadBytes = 1 << 20;
// Entries up to this size are decoded into memory and written by the queued writer's thread.
constexpr qint64 queuedEntryBytes = 1 << 20;

// Serves libzip's reads from the package file. Headers and small entries are read a few dozen
// bytes or KiB at a time and come from a read-ahead window, one system call per MiB; the large
// reads of entry data go straight into the caller's buffer.
class PackageSource
{
public:
    bool open(const QString &path)
    {
        m_file.setFileName(path);
        if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
            return false;
        m_size = m_file.size();
        return true;
    }

    static zip_int64_t callback(void *state, void *data, zip_uint64_t length, zip_source_cmd_t command)
    {
        return static_cast<PackageSource *>(state)->handle(data, length, command);
    }

private:
    zip_int64_t handle(void *data, zip_uint64_t length, zip_source_cmd_t command)
    {
        switch (command) {
        case ZIP_SOURCE_OPEN:
            m_position = 0;
            return 0;
        case ZIP_SOURCE_READ:
            return read(static_cast<char *>(data), qint64(std::min<zip_uint64_t>(length, INT64_MAX)));
        case ZIP_SOURCE_CLOSE:
            return 0;
        case ZIP_SOURCE_STAT: {
            if (length < sizeof(zip_stat_t))
                return fail(ZIP_ER_INVAL);
            auto *stat = static_cast<zip_stat_t *>(data);
            zip_stat_init(stat);
            stat->size = zip_uint64_t(m_size);
            stat->valid |= ZIP_STAT_SIZE;
            return sizeof(zip_stat_t);
        }
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&m_error, data, length);
        case ZIP_SOURCE_SEEK: {
            const zip_int64_t offset = zip_source_seek_compute_offset(zip_uint64_t(m_position), zip_uint64_t(m_size),
                                                                      data, length, &m_error);
            if (offset < 0)
                return -1;
            m_position = offset;
            return 0;
        }
        case ZIP_SOURCE_TELL:
            return m_position;
        case ZIP_SOURCE_FREE:
            return 0; // owned by the extraction, not by libzip
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                                  ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL,
                                                  ZIP_SOURCE_SUPPORTS, -1);
        default:
            return fail(ZIP_ER_OPNOTSUPP);
        }
    }

    zip_int64_t read(char *out, qint64 length)
    {
        qint64 done = 0;
        while (done < length && m_position < m_size) {
            const qint64 windowOffset = m_position - m_windowStart;
            if (windowOffset >= 0 && windowOffset < qint64(m_window.size())) {
                const qint64 take = std::min(length - done, qint64(m_window.size()) - windowOffset);
                std::memcpy(out + done, m_window.constData() + windowOffset, size_t(take));
                done += take;
                m_position += take;
            } else if (length - done >= readAheadBytes) {
                const qint64 got = m_file.seek(m_position) ? m_file.read(out + done, length - done) : -1;
                if (got <= 0)
                    return fail(ZIP_ER_READ);
                done += got;
                m_position += got;
            } else if (!fill(readAheadBytes)) {
                return fail(ZIP_ER_READ);
            }
        }
        return done;
    }

    bool fill(qint64 wanted)
    {
        if (!m_file.seek(m_position))
            return false;
        m_window.resize(qsizetype(std::min(wanted, m_size - m_position)));
        const qint64 got = m_file.read(m_window.data(), m_window.size());
        if (got <= 0)
            return false;
        m_window.resize(qsizetype(got));
        m_windowStart = m_position;
        return true;
    }

    zip_int64_t fail(int code)
    {
        zip_error_set(&m_error, code, 0);
        return -1;
    }

    QFile m_file;
    qint64 m_size = 0;
    qint64 m_position = 0;
    QByteArray m_window;
    qint64 m_windowStart = 0;
    zip_error_t m_error {};
};

struct ArchiveCloser
{
    void operator()(zip_t *archive) const { zip_discard(archive); }
};

bool isReservedDeviceName(const QString &segment)
{
    // Windows opens the device, not a file, for these names whatever the extension.
    QStringView stem(segment);
    if (const qsizetype dot = stem.indexOf(QLatin1Char('.')); dot >= 0)
        stem = stem.left(dot);
    stem = stem.trimmed();
    const bool ascii = std::all_of(stem.cbegin(), stem.cend(), [](QChar c) { return c.unicode() < 0x80; });
    // Most names are plain ASCII and of another length than any device's: no upper-casing, no
    // lookup for them (it counted in an archive of many small files).
    if (ascii && (stem.size() < 3 || stem.size() > 7))
        return false;
    const QString upper = stem.toString().toUpper();
    static const QSet<QString> devices = { QStringLiteral("CON"), QStringLiteral("PRN"), QStringLiteral("AUX"),
                                           QStringLiteral("NUL"), QStringLiteral("CONIN$"), QStringLiteral("CONOUT$"),
                                           QStringLiteral("CLOCK$") };
    if (devices.contains(upper))
        return true;
    if (upper.size() == 4 && (upper.startsWith(QLatin1String("COM")) || upper.startsWith(QLatin1String("LPT")))) {
        const QChar digit = upper.at(3);
        return (digit >= QLatin1Char('0') && digit <= QLatin1Char('9')) || digit == QChar(0x00B9)
            || digit == QChar(0x00B2) || digit == QChar(0x00B3);
    }
    return false;
}

// Names Windows would silently alter or refuse: writing them anyway would put a file somewhere
// other than where the list says it is.
bool isPortableSegment(const QString &segment)
{
    if (segment.endsWith(QLatin1Char('.')) || segment.endsWith(QLatin1Char(' ')))
        return false;
    for (const QChar c : segment) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
        if (QStringView(u"<>\"|?*").contains(c))
            return false;
    }
    return !isReservedDeviceName(segment);
}

// Every ancestor of a relative path below the staging root, the path's own parent first.
void addAncestors(const QString &relativePath, QSet<QString> *directories)
{
    QString path = relativePath;
    for (qsizetype slash = path.lastIndexOf(QLatin1Char('/')); slash > 0; slash = path.lastIndexOf(QLatin1Char('/'))) {
        path.truncate(slash);
        const qsizetype known = directories->size();
        directories->insert(path);
        if (directories->size() == known)
            break; // its ancestors went in with it
    }
}

// Windows folds case: two names that differ only in case are one file there, and which one
// wins would depend on the archive's order. Such a package is refused instead.
class CaseFoldedNames
{
public:
    bool claim(const QString &path)
    {
        QString prefix;
        for (const QString &segment : path.split(QLatin1Char('/'))) {
            prefix = prefix.isEmpty() ? segment : prefix + QLatin1Char('/') + segment;
            // One lookup per name: a new slot is null until it holds the name's spelling.
            QString &spelling = m_names[prefix.toCaseFolded()];
            if (spelling.isNull())
                spelling = prefix;
            else if (spelling != prefix)
                return false;
        }
        return true;
    }

private:
    QHash<QString, QString> m_names;
};

int queuedFailureStatus(QueuedFileWriter::Failure failure)
{
    return failure == QueuedFileWriter::Failure::Create ? ArchiveExtractor::ZipCannotWriteFile
                                                        : ArchiveExtractor::ZipCannotExtract;
}

ArchiveExtractor::Result finished(int status, QList<QString> files = {}, const QSet<QString> &directories = {})
{
    ArchiveExtractor::Result result;
    result.status = status;
    result.files = std::move(files);
    result.directories = ArchiveExtractor::deepestFirst(QList<QString>(directories.cbegin(), directories.cend()));
    return result;
}

} // namespace

QString ArchiveExtractor::safeEntryPath(const QByteArray &rawName)
{
    if (rawName.isEmpty() || rawName.size() > maximumNameBytes || rawName.contains('\0'))
        return {};
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString name = decoder(rawName);
    if (decoder.hasError())
        return {};
    name.replace(QLatin1Char('\\'), QLatin1Char('/'));
    // A leading separator, a drive or a stream make the name point outside staging; checked on
    // the raw text because cleaning would hide a leading "//".
    if (name.startsWith(QLatin1Char('/')) || name.contains(QLatin1Char(':')))
        return {};
    const QString cleaned = QDir::cleanPath(name);
    if (cleaned.isEmpty() || cleaned == QLatin1String("..") || cleaned.startsWith(QLatin1String("../"))
        || QDir::isAbsolutePath(cleaned))
        return {};
    if (cleaned == QLatin1String("."))
        return cleaned;
    for (const QString &segment : cleaned.split(QLatin1Char('/'))) {
        if (!isPortableSegment(segment))
            return {};
    }
    return cleaned;
}

ArchiveExtractor::Result ArchiveExtractor::extractZip(const QString &zipPath, const QString &stagingDir,
                                                      const std::atomic<bool> &cancelFlag,
                                                      std::atomic<qint64> &processedBytes, const ProgressCallback &progress)
{
    PackageSource package;
    if (!package.open(zipPath))
        return finished(ZipCannotOpen);

    zip_error_t error;
    zip_error_init(&error);
    zip_source_t *source = zip_source_function_create(&PackageSource::callback, &package, &error);
    if (!source) {
        zip_error_fini(&error);
        return finished(ZipInvalid);
    }
    std::unique_ptr<zip_t, ArchiveCloser> archive(zip_open_from_source(source, ZIP_RDONLY | ZIP_CHECKCONS, &error));
    zip_error_fini(&error);
    if (!archive) {
        zip_source_free(source);
        return finished(ZipInvalid);
    }

    // First pass: every entry must be describable before anything is written.
    const zip_int64_t entryCount = zip_get_num_entries(archive.get(), 0);
    if (entryCount < 0)
        return finished(ZipInvalid);
    std::vector<zip_stat_t> entries;
    entries.resize(size_t(entryCount));
    qint64 total = 0;
    for (zip_int64_t index = 0; index < entryCount; ++index) {
        zip_stat_t &stat = entries[size_t(index)];
        if (zip_stat_index(archive.get(), zip_uint64_t(index), ZIP_FL_ENC_RAW, &stat) != 0
            || !(stat.valid & ZIP_STAT_NAME) || !(stat.valid & ZIP_STAT_SIZE) || stat.size > zip_uint64_t(INT64_MAX - total))
            return finished(ZipInvalid);
        total += qint64(stat.size);
    }

    const QDir staging(stagingDir);
    if (!QDir().mkpath(stagingDir))
        return finished(ZipCannotCreateDirectory);
    const QStorageInfo volume(stagingDir);
    if (volume.isValid() && volume.isReady() && volume.bytesAvailable() < total)
        return finished(ZipNoSpace);

    QList<QString> files;
    QSet<QString> listedFiles;
    QSet<QString> directories; // made by this run, so a later entry need not make them again
    CaseFoldedNames caseFolded;
    ZipEntryWriter writer(cancelFlag, processedBytes, progress, total);

    QueuedFileWriter queued(cancelFlag);
    // A directory named like a file still in the queue: the file is written first, so that the
    // directory is refused as it would be in archive order.
    const auto settleFileNamed = [&](QString directory) {
        for (; !directory.isEmpty(); directory.truncate(std::max<qsizetype>(directory.lastIndexOf(QLatin1Char('/')), 0))) {
            if (listedFiles.contains(directory))
                return queued.drain();
        }
        return queued.failure();
    };
    // Files still in the queue came earlier in the archive than the entry at hand: when one of
    // them failed, that failure is the one reported.
    const auto failAt = [&](int status) {
        const QueuedFileWriter::Failure failure = queued.drain();
        return finished(failure != QueuedFileWriter::Failure::None ? queuedFailureStatus(failure) : status, files, directories);
    };

    for (zip_int64_t index = 0; index < entryCount; ++index) {
        if (cancelFlag.load())
            return finished(ZipCancelled, files, directories);
        if (queued.failure() != QueuedFileWriter::Failure::None)
            return finished(queuedFailureStatus(queued.failure()), files, directories);
        const zip_stat_t &stat = entries[size_t(index)];
        const QByteArray rawName(stat.name);
        const bool isDirectory = rawName.endsWith('/') || rawName.endsWith('\\');
        const QString path = safeEntryPath(rawName);
        if (path.isEmpty() || (path == QLatin1String(".") && !isDirectory) || (path != QLatin1String(".") && !caseFolded.claim(path)))
            return failAt(ZipUnsafePath);

        if (isDirectory) {
            if (path == QLatin1String("."))
                continue;
            if (settleFileNamed(path) != QueuedFileWriter::Failure::None || !staging.mkpath(path))
                return failAt(ZipCannotCreateDirectory);
            directories.insert(path);
            addAncestors(path, &directories);
            continue;
        }

        const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
        if (slash > 0 && !directories.contains(path.left(slash))
            && (settleFileNamed(path.left(slash)) != QueuedFileWriter::Failure::None || !staging.mkpath(path.left(slash))))
            return failAt(ZipCannotCreateDirectory);
        addAncestors(path, &directories);

        if (qint64(stat.size) <= queuedEntryBytes) {
            QByteArray content;
            if (!writer.read(archive.get(), zip_uint64_t(index), stat, &content))
                return cancelFlag.load() ? finished(ZipCancelled, files, directories) : failAt(ZipCannotExtract);
            queued.write(staging.filePath(path), std::move(content));
        } else {
            // Written here, after every file queued before it: a later entry of the same name
            // must replace an earlier one, never the other way round.
            if (const QueuedFileWriter::Failure failure = queued.drain(); failure != QueuedFileWriter::Failure::None)
                return finished(queuedFailureStatus(failure), files, directories);
            QFile output(staging.filePath(path));
            if (!output.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
                return finished(ZipCannotWriteFile, files, directories);
            if (!writer.write(archive.get(), zip_uint64_t(index), stat, output)) {
                output.close();
                output.remove();
                return finished(cancelFlag.load() ? ZipCancelled : ZipCannotExtract, files, directories);
            }
            output.close();
            if (output.error() != QFileDevice::NoError) {
                output.remove();
                return finished(ZipCannotExtract, files, directories);
            }
        }
        // The same name twice: the later entry has replaced the earlier one, listed once.
        const qsizetype listed = listedFiles.size();
        listedFiles.insert(path);
        if (listedFiles.size() != listed)
            files.append(path);
    }
    if (const QueuedFileWriter::Failure failure = queued.drain(); failure != QueuedFileWriter::Failure::None)
        return finished(queuedFailureStatus(failure), files, directories);
    if (cancelFlag.load())
        return finished(ZipCancelled, files, directories);
    if (progress && total == 0)
        progress(0, 0);
    return finished(ZipSuccess, files, directories);
}
