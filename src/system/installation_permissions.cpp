#include "system/installation_permissions.h"

#include <QDir>
#include <QRegularExpression>

namespace InstallationPermissions {

namespace {

constexpr quint32 invalidParameter = 87; // ERROR_INVALID_PARAMETER

} // namespace

Transaction::Transaction(LogFunction log)
    : m_log(std::move(log))
{
}

bool Transaction::fail(const QString &operation, const QString &path, quint32 windowsError)
{
    m_operation = operation;
    m_failedPath = path;
    m_windowsError = windowsError;
    if (m_log)
        m_log(QStringLiteral("Directory permission setup failed: %1").arg(failure()));
    return false;
}

QString Transaction::failure() const
{
    return QStringLiteral("operation=%1 path=%2 windows_error=%3").arg(m_operation, m_failedPath).arg(m_windowsError);
}

// Only a product directory on a local drive: never a volume root, a network share or a directory
// of another name, where granting the user rights would open up someone else's files.
bool Transaction::validateRoot(const QString &root, Handle token)
{
    static const QRegularExpression drivePath(QStringLiteral("^[A-Za-z]:/"));
    const QString cleaned = QDir::cleanPath(QDir::fromNativeSeparators(root.trimmed()));
    const bool acceptable = cleaned.size() > 2 && drivePath.match(cleaned).hasMatch()
        && !cleaned.startsWith(QLatin1String("//")) && cleaned.size() > 3
        && cleaned.section(QLatin1Char('/'), -1).compare(QLatin1String("BrisaLinker"), Qt::CaseInsensitive) == 0
        && token != nullptr;
    if (!acceptable)
        return fail(QStringLiteral("validate_root"), root, invalidParameter);
    m_root = cleaned;
    return true;
}

bool configureBestEffort(const QString &root, Handle token, const LogFunction &log)
{
    log(QStringLiteral("Configuring product directory permissions."));
    Transaction transaction(log);
    if (transaction.apply(root, token, nullptr)) {
        log(QStringLiteral("Product permissions configured: user_sid=%1 objects=%2 scope=entire_product_directory access=modify inheritance=files_and_directories")
                .arg(transaction.userSid())
                .arg(transaction.objectCount()));
        return true;
    }
    if (transaction.rollback())
        log(QStringLiteral("Product permission setup skipped; original permissions retained; installation will continue."));
    else
        log(QStringLiteral("Product permission restoration incomplete; installation will continue with available permissions."));
    return false;
}

} // namespace InstallationPermissions
