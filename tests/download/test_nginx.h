#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

inline bool writeAll(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

inline quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

// Debian's nginx serving a directory over HTTPS on 127.0.0.1 with the test server's certificates.
class Nginx
{
public:
    ~Nginx()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000))
                m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    bool start(const QString &certificates, QString *error)
    {
        m_port = freePort();
        const QString root = m_dir.filePath("www");
        QDir().mkpath(root);
        QDir().mkpath(m_dir.filePath("logs"));
        // The workers may run as another user; they must be able to read what they serve.
        QFile::setPermissions(m_dir.path(), QFile::permissions(m_dir.path()) | QFile::ReadOther | QFile::ExeOther);
        const QString temp = m_dir.filePath("logs");
        const QByteArray config = QStringLiteral(
            "daemon off; worker_processes 1; pid %1/nginx.pid; error_log %1/logs/error.log;\n"
            "events { worker_connections 64; }\n"
            "http { log_format ranges '$request_uri $http_range'; access_log %1/logs/access.log ranges;\n"
            "  client_body_temp_path %2; proxy_temp_path %2; fastcgi_temp_path %2;\n"
            "  uwsgi_temp_path %2; scgi_temp_path %2; types { application/json json; }\n"
            "  server { listen 127.0.0.1:%3 ssl; ssl_certificate %4/server.pem; ssl_certificate_key %4/server.key;\n"
            "    root %5; } }\n")
            .arg(m_dir.path(), temp).arg(m_port).arg(certificates, root).toUtf8();
        if (!writeAll(m_dir.filePath("nginx.conf"), config))
            return false;
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(QStringLiteral("nginx"), {"-e", m_dir.filePath("logs/error.log"), "-p", m_dir.path(), "-c",
                                                  m_dir.filePath("nginx.conf")});
        if (!m_process.waitForStarted(5000))
            return false;
        for (int i = 0; i < 100; ++i) {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, m_port);
            if (probe.waitForConnected(100))
                return true;
            if (m_process.state() == QProcess::NotRunning)
                break;
            QTest::qWait(50);
        }
        QFile log(m_dir.filePath("logs/error.log"));
        log.open(QIODevice::ReadOnly);
        *error = QString::fromLocal8Bit(m_process.readAll() + log.readAll());
        return false;
    }

    // An nginx started beforehand by the test harness (Windows tests under Wine).
    bool attach(const QString &directory)
    {
        QFile port(directory + "/port");
        if (!port.open(QIODevice::ReadOnly))
            return false;
        m_port = quint16(port.readAll().trimmed().toUInt());
        m_attached = directory;
        m_logOffset = QFileInfo(logDirectory() + "/access.log").size();
        return m_port != 0;
    }

    // The harness's nginx when it started one, else our own; false with a reason to skip in `why`.
    bool startOrAttach(const QString &certificates, QString *why, bool *skip)
    {
        *skip = false;
        const QString started = qEnvironmentVariable("BRISA_TEST_NGINX_DIR");
        if (!started.isEmpty()) {
            *why = started;
            return attach(started);
        }
#ifdef Q_OS_WIN
        *skip = true;
        *why = QStringLiteral("nginx runs on the host; the test harness starts it");
        return false;
#else
        if (QStandardPaths::findExecutable("nginx").isEmpty()
            && QStandardPaths::findExecutable("nginx", {"/usr/sbin", "/sbin"}).isEmpty()) {
            *skip = true;
            *why = QStringLiteral("nginx is not installed (tools/setup installs it)");
            return false;
        }
        return start(certificates, why);
#endif
    }

    // "bytes=a-b" of every request for `path` since the last call.
    QList<QByteArray> takeRanges(const QString &path)
    {
        QFile log(logDirectory() + "/access.log");
        QList<QByteArray> ranges;
        if (!log.open(QIODevice::ReadOnly))
            return ranges;
        log.seek(m_logOffset);
        const QList<QByteArray> lines = log.readAll().split('\n');
        m_logOffset = log.pos();
        for (const QByteArray &line : lines) {
            const QList<QByteArray> fields = line.trimmed().split(' ');
            if (fields.size() == 2 && fields.at(0) == path.toUtf8())
                ranges << fields.at(1);
        }
        return ranges;
    }

    QString logDirectory() const { return m_attached.isEmpty() ? m_dir.filePath("logs") : m_attached + "/logs"; }
    QString root() const { return m_attached.isEmpty() ? m_dir.filePath("www") : m_attached + "/www"; }
    QString url(const QString &path) const { return QStringLiteral("https://127.0.0.1:%1%2").arg(m_port).arg(path); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    QString m_attached;
    qint64 m_logOffset = 0;
};

