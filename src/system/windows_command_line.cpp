#include "system/windows_command_line.h"

namespace WindowsCommandLine {

QString quote(const QString &argument)
{
    QString result;
    result.reserve(argument.size() + 2);
    result += QLatin1Char('"');
    qsizetype backslashes = 0;
    for (const QChar c : argument) {
        if (c == QLatin1Char('\\')) {
            ++backslashes;
            continue;
        }
        if (c == QLatin1Char('"')) {
            result += QString(backslashes * 2 + 1, QLatin1Char('\\'));
            result += c;
        } else {
            result += QString(backslashes, QLatin1Char('\\'));
            result += c;
        }
        backslashes = 0;
    }
    result += QString(backslashes * 2, QLatin1Char('\\'));
    result += QLatin1Char('"');
    return result;
}

QString join(const QStringList &arguments)
{
    QStringList quoted;
    quoted.reserve(arguments.size());
    for (const QString &argument : arguments)
        quoted << quote(argument);
    return quoted.join(QLatin1Char(' '));
}

} // namespace WindowsCommandLine
