#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>
#include <memory>

// SHA-256 through the platform's own implementation (CNG on Windows, libcrypto elsewhere), which
// uses the processor's SHA instructions where it has them. Every digest in the installer goes
// through here.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void addData(QByteArrayView data);
    // The 32-byte digest of everything added; empty if the platform failed. Ends the hasher.
    QByteArray result();
    // result() as 64 lower-case hexadecimal digits; empty if the platform failed.
    QByteArray hexResult();

    // The digest of a file's content as 64 lower-case hexadecimal digits, or an empty text when
    // the file cannot be read to its end. `afterBlock`, if given, runs after every block read.
    static QString fileDigest(const QString &path, const std::function<void()> &afterBlock = {});

private:
    struct Context;
    std::unique_ptr<Context> m_context;
};
