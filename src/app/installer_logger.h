#pragma once

#include <QString>

// One log file per local day in the installer's log root. Every thread logs through one
// process-wide lock, and each line is appended with a single write, so lines never interleave,
// not even between two installer processes sharing the day's file.
namespace InstallerLogger {

// Appends "<local ISO 8601 time with ms>  <message>". Never fails towards the caller.
void write(const QString &message);

// Same, into an explicit log root (the one write() uses is AppPaths::installerLogRoot()).
void writeTo(const QString &logRoot, const QString &message);

} // namespace InstallerLogger
