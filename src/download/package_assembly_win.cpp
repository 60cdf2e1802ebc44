#include "download/package_assembly.h"

// Written through the system cache: unbuffered handles need sector-sized writes and the tail of
// the package would need a second handle, for a gain measured only on the host so far.
bool PackageAssembly::openTarget()
{
    m_unbuffered = false;
    return m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered);
}

void PackageAssembly::endUnbuffered()
{
    m_unbuffered = false;
}
