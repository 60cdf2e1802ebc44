#include "system/url_protocol.h"

// There is no registry on the host: the classes hive never exists.
namespace UrlProtocol {

Key::~Key() = default;

void Key::reset(void *handle)
{
    m_handle = handle;
}

long openUserClasses(Key &, const std::wstring &)
{
    return 2; // ERROR_FILE_NOT_FOUND
}

long readValue(void *, const std::wstring &, Value &, bool &found)
{
    found = false;
    return 6; // ERROR_INVALID_HANDLE
}

} // namespace UrlProtocol
