// Conversion between UTF-8 and UTF-16, and formatted output: the language, the results and the terminators of
// the Microsoft runtime.

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

TEST(Conversion, KeepsEveryRangeOfCharactersAndReplacesWhatIsInvalid)
{
    const std::pair<std::string, std::u16string> cases[] = {
        {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", {'a', 0xE4, 0x20AC, 0xD83D, 0xDE00}},
        {"a\xFFz", {'a', 0xFFFD, 'z'}},                 // no first byte
        {"a\x80z", {'a', 0xFFFD, 'z'}},                 // a following byte alone
        {"a\xC3", {'a', 0xFFFD}},                       // cut at the end
        {"a\xE2\x82z", {'a', 0xFFFD, 'z'}},             // cut in the middle
        {"a\xC0\xAFz", {'a', 0xFFFD, 0xFFFD, 'z'}},     // longer than need be
        {"a\xED\xA0\x80z", {'a', 0xFFFD, 0xFFFD, 'z'}}, // a surrogate
    };
    for (const auto& [utf8, utf16] : cases)
    {
        EXPECT_EQ(Wide(utf8), WideString(utf16.begin(), utf16.end())) << testing::PrintToString(utf8);
    }
    EXPECT_EQ(Utf8(Wide(cases[0].first)), cases[0].first);
    EXPECT_EQ(Utf8(WideString{'a', WCHAR{0xD83D}, 'z', WCHAR{0xDE00}}), "a\xEF\xBF\xBDz\xEF\xBF\xBD");
}

// These hide the calls from the compiler's check of formats, which knows other languages only.
int Format(char* buffer, std::size_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

int Format(WCHAR* buffer, std::size_t size, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

// What both formatters make of a format without texts.
template <class... Arguments>
std::string Both(const std::string& format, Arguments... arguments)
{
    char narrow[200] = "";
    WCHAR wide[200] = {};
    const int result = Format(narrow, 200, format.c_str(), arguments...);
    EXPECT_EQ(Format(wide, 200, Wide(format).c_str(), arguments...), result);
    EXPECT_EQ(Utf8(wide), narrow);
    EXPECT_EQ(std::string(narrow).size(), static_cast<std::size_t>(result));
    return narrow;
}

TEST(Printf, TerminatesOnlyWhatIsShorterThanTheBuffer)
{
    const struct
    {
        std::size_t size;
        int result;
        const char* buffer; // '#' where nothing was written, '$' for the terminator
    } cases[] = {{6, 5, "hello$##"}, {5, 5, "hello###"}, {4, -1, "hell####"}, {0, -1, "########"}};
    for (const auto& each : cases)
    {
        std::string narrow(8, '#');
        WideString wide(8, WCHAR{'#'});
        EXPECT_EQ(Format(narrow.data(), each.size, "%s", "hello"), each.result);
        EXPECT_EQ(Format(wide.data(), each.size, TEXT("%s"), TEXT("hello")), each.result);
        std::replace(narrow.begin(), narrow.end(), '\0', '$');
        std::replace(wide.begin(), wide.end(), WCHAR{}, WCHAR{'$'});
        EXPECT_EQ(narrow, each.buffer);
        EXPECT_EQ(Utf8(wide), each.buffer);
    }
    EXPECT_EQ(Format(static_cast<char*>(nullptr), 0, "hello %500d", 5), 506);
}

TEST(Printf, TextsAndWholeNumbersOfAllSizes)
{
    char narrow[20];
    WCHAR wide[20];
    EXPECT_EQ(Format(narrow, 20, "%s|%s|%%", "\xC3\xB6", nullptr), 11);
    EXPECT_STREQ(narrow, "\xC3\xB6|(null)|%");
    EXPECT_EQ(Format(wide, 20, TEXT("%s|%s"), Wide("\xC3\xB6").c_str(), nullptr), 8);
    EXPECT_EQ(Utf8(wide), "\xC3\xB6|(null)");

    EXPECT_EQ(Both("%d|%i|%u|%x|%04x|%05d|%8.8x", -5, 7, 4000000000u, 0xABCu, 0xABCu, -5, 0xABu),
              "-5|7|4000000000|abc|0abc|-0005|000000ab");
    EXPECT_EQ(Both("%.3d|%.0d|%8.3d|%4.4x", 5, 0, -5, 0xABu), "005||    -005|00ab");
    EXPECT_EQ(Both("%d|%u|%ld|%lx", INT32_MIN, 0xFFFFFFFFu, LONG{-1}, DWORD{255}),
              "-2147483648|4294967295|-1|ff");
    EXPECT_EQ(Both("%llu|%lld|%Iu", UINT64_MAX, std::int64_t{-1}, std::size_t{1} << 33),
              "18446744073709551615|-1|8589934592");
    EXPECT_EQ(Both("%p", reinterpret_cast<void*>(0x1234ABCD)), "000000001234ABCD");
}
} // namespace
