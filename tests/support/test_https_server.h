#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>

class QSslServer;
class QSslSocket;

// A small HTTPS server on 127.0.0.1 for tests: serves byte ranges of in-memory files and can be
// told to misbehave on the next requests for a path. Its CA and server certificate are the
// throwaway ones make-test-certificates.sh leaves in $BRISA_TEST_CERT_DIR before the test.
class TestHttpsServer : public QObject
{
    Q_OBJECT
public:
    enum class Fault {
        None,
        StallMidBody,      // half the body, then silence
        ResetMidBody,      // half the body, then the connection is dropped
        Status500,
        Status503,
        WholeBodyFor200,   // ignores Range and answers 200 with everything
        ShortBody,         // a well-formed 206 that holds fewer bytes than asked for
        WrongContentRange, // a 206 whose Content-Range and bytes belong to another range
        CorruptBytes,      // the right range with one byte flipped
        Trickle,           // the right range, a few bytes at a time
        NotFound,
        DropBeforeAnswer,  // the connection is closed without any answer
    };

    explicit TestHttpsServer(QObject *parent = nullptr);
    ~TestHttpsServer() override;

    // Listens on 127.0.0.1.
    bool start(QString *error = nullptr);
    // Stops listening; call it while the event loop's objects still exist (cleanupTestCase).
    void stop();
    quint16 port() const;
    QString caPath() const; // PEM of the throwaway CA
    QList<QSslCertificate> caCertificates() const;
    QString url(const QString &path) const;

    void setFile(const QString &path, const QByteArray &content);
    // The next `count` requests for `path` get `fault`.
    void addFault(const QString &path, Fault fault, int count = 1);
    void clearFaults();
    int requestCount(const QString &path) const;
    QList<QByteArray> ranges(const QString &path) const;
    void resetCounters();

private:
    void accept(QSslSocket *socket);
    void handle(QSslSocket *socket);
    void respond(QSslSocket *socket, const QString &path, const QByteArray &range);

    QString m_certificates;
    QSslServer *m_server = nullptr;
    QHash<QString, QByteArray> m_files;
    QHash<QString, QList<Fault>> m_faults;
    QHash<QString, QList<QByteArray>> m_ranges;
    QHash<QSslSocket *, QByteArray> m_buffers;
};
