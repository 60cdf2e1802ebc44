#pragma once

#include <QByteArray>
#include <QString>

// Appends bytes to a file with one atomic append (O_APPEND / FILE_APPEND_DATA), creating it if
// needed and sharing it with other writers. False when the file cannot be opened or written.
namespace LogAppend {

bool appendLine(const QString &path, const QByteArray &line);

// The line ending a text file has on this platform.
QByteArray lineEnd();

} // namespace LogAppend
