#include "tools/text.h"

#include <cstdio>

namespace sndxtools
{
std::string Encoded(WideView text, UINT codePage)
{
    if (text.empty())
    {
        return {};
    }
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(codePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(codePage, 0, text.data(), length, result.data(), bytes, nullptr, nullptr);
    return result;
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

std::string Hex(unsigned long value, int digits)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%0*lX", digits, value);
    return text;
}

std::string Quoted(std::string_view utf8)
{
    std::string result = "\"";
    for (const char c : utf8)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F)
        {
            char code[16];
            std::snprintf(code, sizeof code, "<U+%04X>", static_cast<unsigned>(byte));
            result += code;
        }
        else
        {
            result += c;
        }
    }
    return result + "\"";
}
} // namespace sndxtools
