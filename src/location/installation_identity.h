#pragma once

#include <QString>

// Whether an executable is a genuine build of the product, read from its PE headers and its
// version resource.
namespace InstallationIdentity {

enum Kind {
    ValidExecutable = 1, // a valid executable that is not the product's launcher
    Launcher = 2,        // the product's launcher
    Invalid = 3          // see message
};

struct Result
{
    int kind = Invalid;
    QString message;
};

Result executable(const QString &path);
Result installation(const QString &directory); // executable(directory + "/brisalinker.exe")

} // namespace InstallationIdentity
