#pragma once

#include "system/sha256.h"

#include <QFile>
#include <QString>

// The package ZIP put together from its chunk files in index order. Every byte is hashed as it
// is written, so verifying the finished package needs no second read of it.
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

    QString targetPath() const { return m_target; }
    Failure failure() const { return m_failure; }
    // The user's text for a failure, in the download's translation context.
    static QString message(Failure failure);

private:
    QString m_target;
    QFile m_file;
    Sha256 m_hash;
    Failure m_failure = Failure::None;

    bool fail(Failure failure, QString *error);
};
