#include "system/url_protocol.h"

#include <algorithm>

namespace UrlProtocol {

namespace {

constexpr std::uint32_t registryString = 1;
constexpr std::uint32_t registryExpandString = 2;

} // namespace

bool stringValue(const Value &value, std::wstring &text)
{
    if (value.type != registryString && value.type != registryExpandString)
        return false;
    std::wstring result(value.data.size() / sizeof(wchar_t), L'\0');
    std::copy_n(value.data.data(), result.size() * sizeof(wchar_t), reinterpret_cast<unsigned char *>(result.data()));
    // Registry strings may or may not carry their terminator, and may carry several.
    while (!result.empty() && result.back() == L'\0')
        result.pop_back();
    text = result;
    return true;
}

std::wstring normalizedPath(const std::wstring &path)
{
    std::wstring result = path;
    std::replace(result.begin(), result.end(), L'/', L'\\');
    const std::wstring unc = L"\\\\?\\UNC\\";
    const std::wstring local = L"\\\\?\\";
    if (result.compare(0, unc.size(), unc) == 0)
        return L"\\\\" + result.substr(unc.size());
    if (result.compare(0, local.size(), local) == 0)
        return result.substr(local.size());
    return result;
}

std::wstring launchCommand(const std::wstring &executable)
{
    return L"\"" + executable + L"\" \"%1\"";
}

} // namespace UrlProtocol
