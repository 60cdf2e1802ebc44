#pragma once

#include <QCryptographicHash>
#include <QFile>
#include <QString>

// The package ZIP put together from its chunk files in index order. Every byte is hashed as it
// is written, so verifying the finished package needs no second read of it.
class PackageAssembly
{
public:
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

private:
    QString m_target;
    QFile m_file;
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
};
