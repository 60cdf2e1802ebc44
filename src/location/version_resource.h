#pragma once

#include <QString>
#include <QStringList>

// The version strings an executable carries, read through the system's version API.
namespace VersionResource {

enum Outcome { Read, NoTranslation, TooLarge, Unreadable };

using Strings = QStringList;

// For every translation: "FileDescription", "BrisaLinkerComponent" and "InternalName".
Outcome read(const QString &path, Strings *strings, QString *error);

} // namespace VersionResource
