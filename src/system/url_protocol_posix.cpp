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

namespace UrlProtocol {

void notifyAssociationsChanged()
{
}

long Registration::capture()
{
    return m_captured ? 5023 : 50; // ERROR_INVALID_STATE, ERROR_NOT_SUPPORTED
}

long Registration::apply(const std::wstring &)
{
    return 87; // ERROR_INVALID_PARAMETER: nothing was captured
}

long Registration::rollback()
{
    return 0;
}

void Registration::commit()
{
    m_changes.clear();
    m_captured = false;
    m_applied = false;
}

} // namespace UrlProtocol
