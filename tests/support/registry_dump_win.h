#pragma once

#include <QStringList>

#include <windows.h>

#include <string>

namespace TestRegistry {

// A key and everything below it, every value with its type and bytes, as one comparable list.
inline QStringList dump(HKEY root, const std::wstring &subkey = L"")
{
    QStringList lines;
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, subkey.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
        return lines;
    lines << QStringLiteral("key ") + QString::fromStdWString(subkey);
    wchar_t name[256];
    BYTE data[4096];
    for (DWORD i = 0;; ++i) {
        DWORD nameSize = 256, dataSize = sizeof(data), type = 0;
        if (RegEnumValueW(key, i, name, &nameSize, nullptr, &type, data, &dataSize) != ERROR_SUCCESS)
            break;
        lines << QStringLiteral("  %1 %2 %3").arg(QString::fromWCharArray(name, nameSize)).arg(type)
                     .arg(QString::fromLatin1(QByteArray(reinterpret_cast<char *>(data), dataSize).toHex()));
    }
    for (DWORD i = 0;; ++i) {
        DWORD nameSize = 256;
        if (RegEnumKeyExW(key, i, name, &nameSize, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        lines << dump(root, subkey.empty() ? std::wstring(name) : subkey + L"\\" + name);
    }
    RegCloseKey(key);
    return lines;
}

} // namespace TestRegistry
