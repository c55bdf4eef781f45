// Conversion between UTF-8 and UTF-16, and formatted output: the language, the results and the terminators of
// the Microsoft runtime.

#include <algorithm>
#include <cerrno>
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

// The text, or the result of a failure.
template <class... Arguments>
std::string InWide(const std::string& format, Arguments... arguments)
{
    WCHAR wide[200];
    const int result = Format(wide, 200, Wide(format).c_str(), arguments...);
    return result < 0 ? std::to_string(result) : Utf8(WideString(wide, static_cast<std::size_t>(result)));
}

template <class... Arguments>
std::string InNarrow(const std::string& format, Arguments... arguments)
{
    char narrow[200];
    const int result = Format(narrow, 200, format.c_str(), arguments...);
    return result < 0 ? std::to_string(result) : std::string(narrow, static_cast<std::size_t>(result));
}

// What both formatters make of a format without texts.
template <class... Arguments>
std::string Both(const std::string& format, Arguments... arguments)
{
    EXPECT_EQ(InWide(format, arguments...), InNarrow(format, arguments...));
    return InNarrow(format, arguments...);
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

TEST(Printf, TextsHaveTheWidthOfTheFormatAndAreCutAndPadded)
{
    const WideString wide = Wide("wide");
    EXPECT_EQ(InWide("%s|%S|%hs|%ls|%ws", wide.c_str(), "narrow", "narrow", wide.c_str(), wide.c_str()),
              "wide|narrow|narrow|wide|wide");
    EXPECT_EQ(InNarrow("%s|%hs|%S|%ls|%ws", "narrow", "narrow", wide.c_str(), wide.c_str(), wide.c_str()),
              "narrow|narrow|wide|wide|wide");
    EXPECT_EQ(InWide("%c%C%lc%hc", 0x20AC, '1', 0x20AC, '2'), "\xE2\x82\xAC"
                                                              "1\xE2\x82\xAC"
                                                              "2");
    // Bytes are the first 256 characters.
    EXPECT_EQ(InWide("%S", "\xC3\xB6"), "\xC3\x83\xC2\xB6");
    EXPECT_EQ(InNarrow("%ls", Wide("\xC3\xB6").c_str()), "\xF6");
    errno = 0;
    EXPECT_EQ(InNarrow("ab%lscd", Wide("\xE2\x82\xAC").c_str()), "-1");
    EXPECT_EQ(errno, EILSEQ);

    EXPECT_EQ(InNarrow("%5s|%-5s|%.2s|%5.1s|%*s|%-*s|%.*s|%.*s|%.s", "ab", "ab", "abc", "abc", 4, "x", -3,
                       "y", 1, "abc", -1, "abc", "abc"),
              "   ab|ab   |ab|    a|   x|y  |a|abc|");
    const char unterminated[2] = {'a', 'b'};
    EXPECT_EQ(InNarrow("%.2s|%s|%.3s", unterminated, nullptr, nullptr), "ab|(null)|(nu");
}

TEST(Printf, WholeNumbersAndTheirSizes)
{
    EXPECT_EQ(Both("%d|%i|%u|%x|%04X|%05d|%-5d|%8.8x", -5, 7, 4000000000u, 0xABCu, 0xABCu, -5, 5, 0xABu),
              "-5|7|4000000000|abc|0ABC|-0005|5    |000000ab");
    EXPECT_EQ(Both("%.3d|%.0d|%8.3d|%4.4x|%*d|%-*d|%.*d|%.*d", 5, 0, -5, 0xABu, 5, 1, 5, 2, 3, 4, -1, 5),
              "005||    -005|00ab|    1|2    |004|5");
    EXPECT_EQ(Both("%d|%u|%ld|%lX", INT32_MIN, 0xFFFFFFFFu, LONG{-1}, DWORD{255}),
              "-2147483648|4294967295|-1|FF");
    EXPECT_EQ(Both("%I64u|%I64x|%llu|%lld|%I32u|%Iu|%Id|%zu", UINT64_MAX, std::uint64_t{0x123456789},
                   UINT64_MAX, std::int64_t{-1}, 4000000000u, std::size_t{7}, std::ptrdiff_t{-7},
                   std::size_t{1} << 33),
              "18446744073709551615|123456789|18446744073709551615|-1|4000000000|7|-7|8589934592");
    EXPECT_EQ(Both("%p|%20p", reinterpret_cast<void*>(0x1234ABCD), nullptr),
              "000000001234ABCD|    0000000000000000");
    EXPECT_EQ(Both("100%%|%y|%k%d", 5), "100%|y|k5");
    for (const char* unfinished : {"abc%", "abc%5", "abc%l"})
    {
        EXPECT_EQ(Both(unfinished), "abc");
    }
}
} // namespace
