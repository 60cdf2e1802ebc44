#include "app/app_paths.h"

#include <QDir>
#include <QStandardPaths>

// Host builds stand in XDG locations for the Windows known folders, so the portable logic that
// depends on them runs in host tests.
namespace AppPaths {

QString applicationRoot()
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    return data.isEmpty() ? QString() : QDir::cleanPath(data + QStringLiteral("/BrisaLinker"));
}

QStringList tempRootCandidates()
{
    QStringList bases;
    bases << QStandardPaths::writableLocation(QStandardPaths::TempLocation);
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (!data.isEmpty())
        bases << data + QStringLiteral("/BrisaLinkerInstallerCache");
    bases.removeAll(QString());
    return bases;
}

} // namespace AppPaths
