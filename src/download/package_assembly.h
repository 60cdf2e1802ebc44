#pragma once

#include "system/sha256.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <atomic>

// The package ZIP put together from its chunk files in index order. Every byte is hashed as it
// is written, so verifying the finished package needs no second read of it. Runs on the
// download's assembly thread; only abandon() may be called from another thread.
class PackageAssembly
{
public:
    // Why a step failed; callers decide on these, never on the message text.
    enum class Failure { None, Create, ReadChunk, Combine, Write, Verification, Finalize };

    explicit PackageAssembly(const QString &targetPath);
    ~PackageAssembly();
    PackageAssembly(const PackageAssembly &) = delete;
    PackageAssembly &operator=(const PackageAssembly &) = delete;

    // Creates (truncates) "<target>.assembling".
    bool begin(QString *error);
    // Appends one chunk file of exactly `length` bytes.
    bool append(const QString &chunkPath, qint64 length, QString *error);
    // Checks the digest of everything appended and renames the file to the target.
    bool finish(const QByteArray &expectedSha256, QString *error);

    // Makes every later step return at once: a new run may already use the same target.
    void abandon() { m_abandoned = true; }
    bool abandoned() const { return m_abandoned; }

    QString targetPath() const { return m_target; }
    Failure failure() const { return m_failure; }
    // The user's text for a failure, in the download's translation context.
    static QString message(Failure failure);

private:
    QString m_target;
    QFile m_file;
    Sha256 m_hash;
    QByteArray m_blockStorage; // reused for every chunk
    char *m_block = nullptr;   // its aligned start
    Failure m_failure = Failure::None;
    std::atomic<bool> m_abandoned { false };

    bool fail(Failure failure, QString *error);
    bool write(const char *data, qint64 size);

    // The package bypasses the system cache where the platform allows it: it is written once,
    // and filling fresh cache pages for it cost as much as the whole download. Such writes need
    // aligned buffers, sizes and offsets; the package's unaligned tail is written cached.
    static constexpr qint64 unbufferedAlignment = 4096;
    bool openTarget();
    void endUnbuffered();
    bool m_unbuffered = false;
};
