// Conversion between UTF-8 and UTF-16, and the system's message texts.

#include <string>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

struct Wider
{
    int result;
    DWORD error;
    WideString text; // the whole target, '#' where nothing was written
};

Wider ToWide(const std::string& source, int length, int size, DWORD flags = 0)
{
    Wider wider{0, 0, WideString(16, WCHAR{'#'})};
    SetLastError(ERROR_SUCCESS);
    wider.result = MultiByteToWideChar(CP_UTF8, flags, source.c_str(), length, wider.text.data(), size);
    wider.error = GetLastError();
    return wider;
}

std::string ToNarrow(const WideString& source)
{
    char target[64] = {};
    const int length = WideCharToMultiByte(CP_UTF8, 0, source.data(), static_cast<int>(source.size()), target,
                                           sizeof target, nullptr, nullptr);
    return std::string(target, static_cast<std::size_t>(length));
}

WideString Units(std::initializer_list<int> units)
{
    WideString text;
    for (const int unit : units)
    {
        text.push_back(static_cast<WCHAR>(unit));
    }
    return text;
}

TEST(Conversion, KeepsEveryRangeOfCharactersBothWays)
{
    const std::string utf8 = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBF";
    const WideString utf16 = Units({'a', 0xE4, 0x20AC, 0xD83D, 0xDE00, 0xFFFF});
    EXPECT_EQ(Wide(utf8), utf16);
    EXPECT_EQ(ToNarrow(utf16), utf8);
}

TEST(Conversion, CountsTheTerminatorOnlyOfATextWithoutLength)
{
    EXPECT_EQ(ToWide("abc", -1, 16).result, 4);
    EXPECT_EQ(ToWide("abc", -1, 4).result, 4);
    EXPECT_EQ(ToWide("abc", 3, 16).result, 3);
    EXPECT_EQ(ToWide("abc", 3, 16).text, Wide("abc#############"));
    EXPECT_EQ(ToWide(std::string("a\0b", 3), 3, 16).result, 3);
    EXPECT_EQ(ToWide("\xC3\xA4!", -1, 0).result, 3) << "the size that it needs";
}

TEST(Conversion, FillsATooSmallTargetAndFails)
{
    const Wider wider = ToWide("abcdef", -1, 4);
    EXPECT_EQ(wider.result, 0);
    EXPECT_EQ(wider.error, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(wider.text, Wide("abcd############"));

    char narrow[8] = "#######";
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(
        WideCharToMultiByte(CP_UTF8, 0, Wide("abc\xE2\x82\xAC").c_str(), -1, narrow, 5, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    // No part of a character is written.
    EXPECT_STREQ(narrow, "abc####");
}

TEST(Conversion, ReplacesWhatIsInvalid)
{
    const std::pair<std::string, WideString> cases[] = {
        {"a\xFFz", Units({'a', 0xFFFD, 'z'})},                 // no first byte
        {"a\x80z", Units({'a', 0xFFFD, 'z'})},                 // a following byte alone
        {"a\xC3", Units({'a', 0xFFFD})},                       // cut at the end
        {"a\xE2\x82z", Units({'a', 0xFFFD, 'z'})},             // cut in the middle
        {"a\xC0\xAFz", Units({'a', 0xFFFD, 0xFFFD, 'z'})},     // longer than need be
        {"a\xED\xA0\x80z", Units({'a', 0xFFFD, 0xFFFD, 'z'})}, // a surrogate
    };
    for (const auto& [utf8, utf16] : cases)
    {
        EXPECT_EQ(Wide(utf8), utf16) << testing::PrintToString(utf8);
    }
    EXPECT_EQ(ToNarrow(Units({'a', 0xD83D, 'z'})), "a\xEF\xBF\xBDz");
    EXPECT_EQ(ToNarrow(Units({'a', 0xDE00, 0xD83D})), "a\xEF\xBF\xBD\xEF\xBF\xBD");

    const Wider strict = ToWide("a\xFFz", -1, 16, MB_ERR_INVALID_CHARS);
    EXPECT_EQ(strict.result, 0);
    EXPECT_EQ(strict.error, ERROR_NO_UNICODE_TRANSLATION);
}

constexpr DWORD allocated =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;

TEST(Messages, AreAllocatedLinesOfTextForKnownCodesOnly)
{
    LPWSTR text = nullptr;
    const auto format = [&text](DWORD code)
    {
        return FormatMessageW(allocated, nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                              reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    };
    for (const DWORD code : {2u, 5u, 32u, 183u, 231u})
    {
        const DWORD length = format(code);
        const std::string message = Utf8(text);
        EXPECT_EQ(message.size(), length) << code;
        EXPECT_GT(length, 4u);
        EXPECT_EQ(message.find("\r\n"), length - 2);
        EXPECT_EQ(LocalFree(text), nullptr);
    }
    EXPECT_EQ(format(0x2FFFFFFF), 0u);
    EXPECT_EQ(GetLastError(), ERROR_MR_MID_NOT_FOUND);
}
} // namespace
