#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <functional>
#include <vector>

// Grants the desktop user modify rights on every object of the product directory, all or
// nothing. The installer runs elevated, the product as the signed-in user, who must be able to
// update its own files, logs and caches; rights must never reach a file outside the product, so
// links, junctions and files with a second hard link are refused and everything is put back.
namespace InstallationPermissions {

using Handle = void *; // a Windows HANDLE; opaque so portable code needs no windows.h
using LogFunction = std::function<void(const QString &line)>;

// Read, write, execute and delete: "modify".
constexpr quint32 modifyAccess = 0x1301BF;

class Transaction
{
public:
    explicit Transaction(LogFunction log);
    ~Transaction(); // closes every handle still held
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    // Collects the tree under root and grants the token's user modify rights on each object,
    // checking every step. On failure the caller rolls back.
    bool apply(const QString &root, Handle token, QString *error);
    // Opens and inspects one object and, for a directory, everything below it.
    bool collect(const QString &path, bool isRoot);
    // Writes every saved access list back, newest first, and removes what this transaction
    // created. Tries everything; false when any part failed.
    bool rollback();
    // Logs the failing operation and remembers it; always false.
    bool fail(const QString &operation, const QString &path, quint32 windowsError);

    qsizetype objectCount() const { return qsizetype(m_objects.size()); }
    QString userSid() const { return m_userSidText; }
    QString failedOperation() const { return m_operation; }
    quint32 windowsError() const { return m_windowsError; }

private:
    struct Object
    {
        QString path;
        Handle handle = nullptr;
        bool directory = false;
        quint32 access = modifyAccess;
        QByteArray formerDescriptor; // self-relative, DACL only; empty until read
        bool created = false;
    };

    bool validateRoot(const QString &root, Handle token);
    bool identifyUser(Handle token);
    bool createDataEntries(const QString &root);
    bool grant(Object &object);
    QString failure() const;
    void closeHandles();

    LogFunction m_log;
    std::vector<Object> m_objects;
    QStringList m_created; // data directories and the lock file this transaction made
    QString m_root;
    QByteArray m_userSid; // binary SID
    QString m_userSidText;
    Handle m_impersonation = nullptr;
    QString m_operation;
    QString m_failedPath;
    quint32 m_windowsError = 0;
};

// The one call of the finalization: apply, and on failure roll back. Logs the outcome; never
// stops the installation.
bool configureBestEffort(const QString &root, Handle token, const LogFunction &log);

// The token of the process that owns the shell's desktop window, or null. The caller owns it.
Handle desktopToken();

// The user SID of a token in string form, or empty.
QString tokenSid(Handle token);

} // namespace InstallationPermissions
