#include "support/test_https_server.h"

#include <QFile>
#include <QHostAddress>
#include <QRegularExpression>
#include <QSslConfiguration>
#include <QSslServer>
#include <QSslSocket>
#include <QTimer>

namespace {

constexpr int trickleBytes = 512;
constexpr int trickleIntervalMs = 20;

QByteArray statusLine(int status)
{
    static const QHash<int, QByteArray> reasons { { 200, "OK" }, { 206, "Partial Content" }, { 404, "Not Found" },
                                                  { 416, "Range Not Satisfiable" }, { 500, "Internal Server Error" },
                                                  { 503, "Service Unavailable" } };
    return "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasons.value(status) + "\r\n";
}

void sendSlowly(QSslSocket *socket, QByteArray rest)
{
    if (socket->state() != QAbstractSocket::ConnectedState)
        return;
    socket->write(rest.left(trickleBytes));
    rest.remove(0, trickleBytes);
    if (rest.isEmpty()) {
        socket->disconnectFromHost();
        return;
    }
    QTimer::singleShot(trickleIntervalMs, socket, [socket, rest] { sendSlowly(socket, rest); });
}

} // namespace

TestHttpsServer::TestHttpsServer(QObject *parent)
    : QObject(parent)
    , m_certificates(qEnvironmentVariable("BRISA_TEST_CERT_DIR"))
{
}

TestHttpsServer::~TestHttpsServer()
{
    stop();
}

void TestHttpsServer::stop()
{
    delete m_server;
    m_server = nullptr;
}

bool TestHttpsServer::start(QString *error)
{
    QFile certificate(m_certificates + QStringLiteral("/server.pem"));
    QFile key(m_certificates + QStringLiteral("/server.key"));
    if (!certificate.open(QIODevice::ReadOnly) || !key.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("no certificates in \"%1\" (BRISA_TEST_CERT_DIR)").arg(m_certificates);
        return false;
    }
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(QSslCertificate(certificate.readAll(), QSsl::Pem));
    configuration.setPrivateKey(QSslKey(key.readAll(), QSsl::Rsa, QSsl::Pem));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    m_server = new QSslServer(this);
    m_server->setSslConfiguration(configuration);
    // Sockets are served from the handshake on; taking them off the pending queue keeps the
    // server accepting after its queue limit.
    connect(m_server, &QSslServer::startedEncryptionHandshake, this, [this](QSslSocket *socket) { accept(socket); });
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (m_server->hasPendingConnections())
            m_server->nextPendingConnection();
    });
    if (!m_server->listen(QHostAddress::LocalHost, 0)) {
        if (error)
            *error = m_server->errorString();
        return false;
    }
    return true;
}

quint16 TestHttpsServer::port() const { return m_server ? m_server->serverPort() : 0; }
QString TestHttpsServer::caPath() const { return m_certificates + QStringLiteral("/ca.pem"); }
QList<QSslCertificate> TestHttpsServer::caCertificates() const { return QSslCertificate::fromPath(caPath()); }

QString TestHttpsServer::url(const QString &path) const
{
    return QStringLiteral("https://127.0.0.1:%1%2").arg(port()).arg(path);
}

void TestHttpsServer::setFile(const QString &path, const QByteArray &content) { m_files.insert(path, content); }
void TestHttpsServer::addFault(const QString &path, Fault fault, int count)
{
    for (int i = 0; i < count; ++i)
        m_faults[path].append(fault);
}
void TestHttpsServer::clearFaults() { m_faults.clear(); }
int TestHttpsServer::requestCount(const QString &path) const { return m_ranges.value(path).size(); }
QList<QByteArray> TestHttpsServer::ranges(const QString &path) const { return m_ranges.value(path); }
void TestHttpsServer::resetCounters() { m_ranges.clear(); }

void TestHttpsServer::accept(QSslSocket *socket)
{
    connect(socket, &QSslSocket::readyRead, this, [this, socket] { handle(socket); });
    // Sockets stay children of the server until it is deleted: the server may still hold a
    // finished handshake in its pending list, and deleting such a socket early leaves the server
    // a dangling pointer to free when it closes.
    connect(socket, &QSslSocket::disconnected, this, [this, socket] { m_buffers.remove(socket); });
    connect(socket, &QSslSocket::errorOccurred, socket, [socket] { socket->abort(); });
}

void TestHttpsServer::handle(QSslSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype end = buffer.indexOf("\r\n\r\n");
    if (end < 0)
        return;
    const QList<QByteArray> lines = buffer.left(end).split('\n');
    buffer.clear();
    const QList<QByteArray> request = lines.value(0).trimmed().split(' ');
    QString path = QString::fromLatin1(request.value(1));
    path = path.left(path.indexOf(QLatin1Char('?')) < 0 ? path.size() : path.indexOf(QLatin1Char('?')));
    QByteArray range;
    for (const QByteArray &line : lines) {
        if (line.toLower().startsWith("range:"))
            range = line.mid(6).trimmed();
    }
    respond(socket, path, range);
}

void TestHttpsServer::respond(QSslSocket *socket, const QString &path, const QByteArray &range)
{
    m_ranges[path].append(range);
    const Fault fault = m_faults[path].isEmpty() ? Fault::None : m_faults[path].takeFirst();
    const auto send = [socket](int status, const QByteArray &headers, const QByteArray &body) {
        socket->write(statusLine(status) + headers + "Content-Length: " + QByteArray::number(body.size())
                      + "\r\nConnection: close\r\n\r\n" + body);
        socket->disconnectFromHost();
    };
    if (fault == Fault::DropBeforeAnswer) {
        socket->disconnectFromHost();
        return;
    }
    if (!m_files.contains(path) || fault == Fault::NotFound)
        return send(404, QByteArray(), "not found");
    if (fault == Fault::Status500 || fault == Fault::Status503)
        return send(fault == Fault::Status500 ? 500 : 503, QByteArray(), "try later");
    const QByteArray &content = m_files.value(path);
    const qint64 size = content.size();
    static const QRegularExpression rangePattern(QStringLiteral("^bytes=(\\d+)-(\\d*)$"));
    const QRegularExpressionMatch match = rangePattern.match(QString::fromLatin1(range));
    if (!match.hasMatch() || fault == Fault::WholeBodyFor200)
        return send(200, "Content-Type: application/octet-stream\r\n", content);
    qint64 first = match.captured(1).toLongLong();
    qint64 last = match.captured(2).isEmpty() ? size - 1 : std::min(match.captured(2).toLongLong(), size - 1);
    if (first > last)
        return send(416, "Content-Range: bytes */" + QByteArray::number(size) + "\r\n", QByteArray());
    if (fault == Fault::WrongContentRange) {
        first = first > 0 ? first - 1 : first + 1;
        last = std::min(last + (first > 0 ? -1 : 1), size - 1);
    }
    QByteArray body = content.mid(first, last - first + 1);
    if (fault == Fault::ShortBody) {
        body.chop(std::max<qsizetype>(1, body.size() / 3));
        last = first + body.size() - 1;
    }
    if (fault == Fault::CorruptBytes)
        body[body.size() / 2] = char(body.at(body.size() / 2) ^ 0x5a);
    const QByteArray headers = statusLine(206) + "Content-Range: bytes " + QByteArray::number(first) + '-'
        + QByteArray::number(last) + '/' + QByteArray::number(size) + "\r\nContent-Length: "
        + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n";
    switch (fault) {
    case Fault::StallMidBody:
        socket->write(headers + body.left(body.size() / 2));
        return; // the socket stays open and silent until the client gives up
    case Fault::ResetMidBody:
        socket->write(headers + body.left(body.size() / 2));
        socket->flush();
        QTimer::singleShot(50, socket, [socket] { socket->abort(); });
        return;
    case Fault::Trickle:
        socket->write(headers);
        sendSlowly(socket, body);
        return;
    default:
        socket->write(headers + body);
        socket->disconnectFromHost();
    }
}
