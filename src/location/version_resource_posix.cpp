#include "location/version_resource.h"

// Only Windows can read version resources through its version API; a host build treats every
// valid executable as one without translations (not the launcher).
namespace VersionResource {

Outcome read(const QString &, Strings *, QString *)
{
    return NoTranslation;
}

} // namespace VersionResource
