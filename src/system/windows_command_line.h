#pragma once

#include <QString>
#include <QStringList>

// Windows parses a command line back into arguments (CommandLineToArgvW, the C runtime) by rules
// that treat backslashes specially only before a double quote. Quoting every argument this way
// makes any text, blanks, quotes and trailing backslashes included, arrive unchanged.
namespace WindowsCommandLine {

// One argument wrapped in double quotes: n backslashes before a quote become 2n+1 and the quote,
// n backslashes at the end become 2n before the closing quote, others stay.
QString quote(const QString &argument);

// Every argument quoted, joined with single blanks.
QString join(const QStringList &arguments);

} // namespace WindowsCommandLine
