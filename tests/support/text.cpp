#include "tests/support/text.h"

namespace sndxtest
{
std::string Utf8(const WideString& text)
{
    if (text.empty())
    {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), bytes, nullptr, nullptr);
    return result;
}

std::string Utf8(const WCHAR* text)
{
    return text == nullptr ? "(null pointer)" : Utf8(WideString(text));
}

WideString Wide(std::string_view utf8)
{
    if (utf8.empty())
    {
        return {};
    }
    const int length = static_cast<int>(utf8.size());
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    WideString result(static_cast<std::size_t>(units), WCHAR{});
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, result.data(), units);
    return result;
}
} // namespace sndxtest
