#include "support/test_registrations.h"

namespace TestRegistrations {

QMap<QString, QByteArray> snapshot()
{
    return {};
}

bool plantOlderInstaller(const QString &, const QString &)
{
    return true;
}

void forget()
{
}

} // namespace TestRegistrations
