#include "location/version_resource.h"
#include "system/handles_win.h"

#include <QDir>

#include <vector>

namespace VersionResource {

Outcome read(const QString &path, Strings *strings, QString *error)
{
    const QString native = QDir::toNativeSeparators(path);
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(wideChars(native), &ignored);
    if (size > 4194304)
        return TooLarge;
    if (size == 0) {
        // A build of ours always carries version information; a file without any is not one we
        // can vouch for, not even as the earlier layout.
        *error = QStringLiteral("Unable to read application resources (Windows %1).").arg(GetLastError());
        return Unreadable;
    }
    std::vector<unsigned char> data(size);
    if (!GetFileVersionInfoW(wideChars(native), 0, size, data.data())) {
        *error = QStringLiteral("Unable to read application resources (Windows %1).").arg(GetLastError());
        return Unreadable;
    }
    struct Translation
    {
        WORD language;
        WORD codePage;
    };
    Translation *translations = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(data.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void **>(&translations), &length)
        || !translations || length < sizeof(Translation)) {
        return NoTranslation;
    }
    for (UINT i = 0; i < length / sizeof(Translation); ++i) {
        const QString key = QStringLiteral("%1%2").arg(translations[i].language, 4, 16, QLatin1Char('0')).arg(translations[i].codePage, 4, 16, QLatin1Char('0'));
        for (const char *name : { "FileDescription", "BrisaLinkerComponent", "InternalName" }) {
            const QString query = QStringLiteral("\\StringFileInfo\\%1\\%2").arg(key, QString::fromLatin1(name));
            wchar_t *text = nullptr;
            UINT textLength = 0;
            if (VerQueryValueW(data.data(), wideChars(query), reinterpret_cast<void **>(&text), &textLength) && text)
                strings->append(QString::fromWCharArray(text)); // up to its terminating zero
        }
    }
    return Read;
}

} // namespace VersionResource
