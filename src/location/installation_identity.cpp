#include "location/installation_identity.h"
#include "location/version_resource.h"
#include "system/file_links.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QtEndian>

namespace InstallationIdentity {

namespace {

Result invalid(const QString &message)
{
    return { Invalid, message };
}

// The launcher is the build whose version strings call it a Launcher, as a whole word.
bool namesLauncher(const QString &text)
{
    static const QRegularExpression word(QStringLiteral("\\bLauncher\\b"), QRegularExpression::CaseInsensitiveOption);
    return word.match(text).hasMatch();
}

} // namespace

Result executable(const QString &path)
{
    if (path.isEmpty() || FileLinks::isLink(path) || !QFileInfo(path).isFile())
        return invalid(QStringLiteral("The application executable is not a regular file."));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return invalid(file.errorString());

    const QByteArray dos = file.read(64);
    const quint32 peOffset = dos.size() == 64 ? qFromLittleEndian<quint32>(dos.constData() + 60) : 0;
    if (dos.size() < 64 || !dos.startsWith("MZ") || peOffset < 64 || peOffset >= quint64(file.size()))
        return invalid(QStringLiteral("The application executable has an invalid DOS header."));
    if (!file.seek(peOffset))
        return invalid(QStringLiteral("The application executable has an invalid PE header."));
    const QByteArray pe = file.read(26);
    if (pe.size() < 26)
        return invalid(QStringLiteral("The application executable has an invalid PE header."));
    if (!pe.startsWith(QByteArray("PE\0\0", 4)))
        return invalid(QStringLiteral("The application executable has an invalid PE signature."));
    // COFF header: machine(2) sections(2) time(4) symbols(4) count(4) optional size(2) flags(2).
    const quint16 optionalSize = qFromLittleEndian<quint16>(pe.constData() + 4 + 16);
    const quint16 characteristics = qFromLittleEndian<quint16>(pe.constData() + 4 + 18);
    const quint16 magic = qFromLittleEndian<quint16>(pe.constData() + 24);
    if (!(characteristics & 0x0002) || (characteristics & 0x2000))
        return invalid(QStringLiteral("The application executable has an invalid PE header."));
    if (optionalSize < 96 || (magic != 0x10B && magic != 0x20B))
        return invalid(QStringLiteral("The application executable has an invalid optional header."));
    file.close();

    VersionResource::Strings strings;
    QString error;
    switch (VersionResource::read(path, &strings, &error)) {
    case VersionResource::TooLarge:
        return invalid(QStringLiteral("The application version resource is too large."));
    case VersionResource::Unreadable:
        return invalid(error);
    case VersionResource::NoTranslation:
        return { ValidExecutable, {} };
    case VersionResource::Read:
        break;
    }
    for (const QString &text : std::as_const(strings)) {
        if (namesLauncher(text))
            return { Launcher, {} };
    }
    return { ValidExecutable, {} };
}

Result installation(const QString &directory)
{
    return executable(directory + QStringLiteral("/brisalinker.exe"));
}

} // namespace InstallationIdentity
