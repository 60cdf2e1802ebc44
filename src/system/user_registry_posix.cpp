#include "system/user_registry.h"

// The host has no registry: every key reads as missing, and writing or removing one changes
// nothing there is.
namespace UserRegistry {

long readValues(const QString &, QList<Value> *values, bool *keyExists)
{
    values->clear();
    if (keyExists)
        *keyExists = false;
    return 0;
}

long replaceValues(const QString &, const QList<Value> &)
{
    return 0;
}

long removeKey(const QString &)
{
    return 0;
}

QString text(const QList<Value> &, const QString &)
{
    return {};
}

} // namespace UserRegistry
