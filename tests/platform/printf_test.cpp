// Formatted output: the language, the results and the terminators of the Microsoft runtime.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/text.h"

namespace
{
using namespace sndxtest;

// These hide the calls from the compiler's check of formats, which knows other languages only.
int Narrow(char* buffer, std::size_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

int Wider(WCHAR* buffer, std::size_t size, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

// What the narrow and the wide formatter make of a format without texts; they have to agree.
template <class... Arguments>
std::string Both(const std::string& format, Arguments... arguments)
{
    char narrow[200];
    WCHAR wide[200];
    const int result = Narrow(narrow, 200, format.c_str(), arguments...);
    const int wideResult = Wider(wide, 200, Wide(format).c_str(), arguments...);
    if (result < 0 || wideResult != result || Utf8(wide) != narrow)
    {
        return "narrow " + std::to_string(result) + " wide " + std::to_string(wideResult) + " " + Utf8(wide);
    }
    return std::string(narrow, static_cast<std::size_t>(result));
}

template <class... Arguments>
std::string InWide(const std::string& format, Arguments... arguments)
{
    WCHAR wide[200];
    const int result = Wider(wide, 200, Wide(format).c_str(), arguments...);
    return result < 0 ? std::to_string(result) : Utf8(WideString(wide, static_cast<std::size_t>(result)));
}

template <class... Arguments>
std::string InNarrow(const std::string& format, Arguments... arguments)
{
    char narrow[200];
    const int result = Narrow(narrow, 200, format.c_str(), arguments...);
    return result < 0 ? std::to_string(result) : std::string(narrow, static_cast<std::size_t>(result));
}

// Result, and the buffer of 12 units with '#' where nothing was written and '$' for the terminator.
std::string Show(int result, std::string buffer)
{
    std::replace(buffer.begin(), buffer.end(), '\0', '$');
    return std::to_string(result) + " " + buffer;
}

std::string NarrowInto(std::size_t size, const char* format, const char* text)
{
    std::string buffer(12, '#');
    const int result = Narrow(buffer.data(), size, format, text);
    return Show(result, buffer);
}

std::string WideInto(std::size_t size, const char* format, const char* text)
{
    WideString buffer(12, WCHAR{'#'});
    const int result = Wider(buffer.data(), size, Wide(format).c_str(), Wide(text).c_str());
    return Show(result, Utf8(buffer));
}

TEST(Printf, TerminatesOnlyWhatIsShorterThanTheBuffer)
{
    for (const auto into : {&NarrowInto, &WideInto})
    {
        EXPECT_EQ(into(6, "%s", "hello"), "5 hello$######");
        EXPECT_EQ(into(5, "%s", "hello"), "5 hello#######");
        EXPECT_EQ(into(4, "%s", "hello"), "-1 hell########");
        EXPECT_EQ(into(0, "%s", "hello"), "-1 ############");
        EXPECT_EQ(into(0, "%s", ""), "0 ############");
        EXPECT_EQ(into(1, "%s", ""), "0 $###########");
        EXPECT_EQ(into(4, "ab%8s", "c"), "-1 ab  ########");
    }
    EXPECT_EQ(Narrow(nullptr, 0, "hello %d", 5), 7);
    EXPECT_EQ(Wider(nullptr, 0, Wide("%s-%500d").c_str(), Wide("ab").c_str(), 5), 503);
}

TEST(Printf, WidthOfTextsGoesWithTheFormat)
{
    const WideString wide = Wide("wide");
    const WideString euro = Wide("\xE2\x82\xAC");
    EXPECT_EQ(InWide("%s|%S|%hs|%ls|%ws|%hS|%lS", wide.c_str(), "narrow", "narrow", wide.c_str(),
                     wide.c_str(), "narrow", wide.c_str()),
              "wide|narrow|narrow|wide|wide|narrow|wide");
    EXPECT_EQ(InNarrow("%s|%hs|%S|%ls|%ws", "narrow", "narrow", wide.c_str(), wide.c_str(), wide.c_str()),
              "narrow|narrow|wide|wide|wide");
    EXPECT_EQ(InWide("%s %c%C%lc%hc", euro.c_str(), 0x20AC, 'a', 0x20AC, 'b'), "\xE2\x82\xAC \xE2\x82\xAC"
                                                                               "a\xE2\x82\xAC"
                                                                               "b");
    EXPECT_EQ(InNarrow("%c%C%lc", 'a', 'b', 'c'), "abc");
    EXPECT_EQ(InNarrow("%c|", 0), std::string("\0|", 2));
}

TEST(Printf, TakesBytesAsTheFirst256Characters)
{
    EXPECT_EQ(InWide("%S", "\xC3\xB6"), "\xC3\x83\xC2\xB6");
    EXPECT_EQ(InNarrow("%ls", Wide("\xC3\xB6").c_str()), "\xF6");
    errno = 0;
    EXPECT_EQ(InNarrow("ab%lscd", Wide("\xE2\x82\xAC").c_str()), "-1");
    EXPECT_EQ(errno, EILSEQ);
    EXPECT_EQ(InNarrow("a%lcb", 0x20AC), "ab"); // a single one is left out
}

TEST(Printf, CutsAndPadsTexts)
{
    EXPECT_EQ(InNarrow("%5s|%-5s|%.2s|%5.1s|%*s|%-*s|%.*s|%.*s|%.s", "ab", "ab", "abc", "abc", 4, "x", -3,
                       "y", 1, "abc", -1, "abc", "abc"),
              "   ab|ab   |ab|    a|   x|y  |a|abc|");
    EXPECT_EQ(InNarrow("%3c|%-3c|", 'x', 'y'), "  x|y  |");
    const char unterminated[2] = {'a', 'b'};
    EXPECT_EQ(InNarrow("%.2s", unterminated), "ab");
    EXPECT_EQ(InNarrow("%s|%.3s|%S", nullptr, nullptr, nullptr), "(null)|(nu|(null)");
    EXPECT_EQ(InWide("%s|%.3s|%S", nullptr, nullptr, nullptr), "(null)|(nu|(null)");
}

TEST(Printf, WholeNumbers)
{
    EXPECT_EQ(Both("%d|%i|%u|%x|%X|%o", -5, 7, 4000000000u, 0xABCu, 0xABCu, 8u),
              "-5|7|4000000000|abc|ABC|10");
    EXPECT_EQ(Both("%+d|% d|%+ d|%05d|%-5d|%-05d|%+05d", 5, 5, 5, -5, 5, 5, 5),
              "+5| 5|+5|-0005|5    |5    |+0005");
    EXPECT_EQ(Both("%#x|%#X|%#o|%#x|%#o", 255, 255, 8, 0, 0), "0xff|0XFF|010|0|0");
    EXPECT_EQ(Both("%.3d|%.0d|%8.3d|%.d|%#08x", 5, 0, 5, 0, 0xAB), "005||     005||0x0000ab");
    EXPECT_EQ(Both("%*d|%-*d|%*d|%.*d|%.*d", 5, 1, 5, 2, -5, 3, 3, 4, -1, 5), "    1|2    |3    |004|5");
    EXPECT_EQ(Both("%+u|% x", 5, 5), "5|5"); // no sign for what has none
    EXPECT_EQ(Both("%d|%u", (std::numeric_limits<int>::min)(), 0xFFFFFFFFu), "-2147483648|4294967295");
}

TEST(Printf, SizesOfWholeNumbers)
{
    const std::uint64_t big = 0xFFFFFFFFFFFFFFFFull;
    const std::int64_t minus = -1;
    EXPECT_EQ(Both("%I64u|%I64d|%I64x|%llu|%lld", big, minus, std::uint64_t{0x123456789}, big, minus),
              "18446744073709551615|-1|123456789|18446744073709551615|-1");
    EXPECT_EQ(Both("%I32u|%I32d|%Iu|%Id|%Ix|%zu", 4000000000u, -1, std::size_t{7}, std::ptrdiff_t{-7},
                   std::size_t{1} << 40, std::size_t{1} << 33),
              "4000000000|-1|7|-7|10000000000|8589934592");
    EXPECT_EQ(Both("%ld|%lu|%lx|%d", LONG{-1}, ULONG{0xFFFFFFFF}, DWORD{255}, 5), "-1|4294967295|ff|5");
    EXPECT_EQ(Both("%hd|%hu", 70000, 70000), "4464|4464");
}

TEST(Printf, PointersAreSixteenDigits)
{
    EXPECT_EQ(Both("%p|%p|%20p|%-18p|", reinterpret_cast<void*>(0x1234ABCD), nullptr,
                   reinterpret_cast<void*>(1), reinterpret_cast<void*>(2)),
              "000000001234ABCD|0000000000000000|    0000000000000001|0000000000000002  |");
}

TEST(Printf, Fractions)
{
    EXPECT_EQ(Both("%f|%.2f|%10.3f|%-8.1f|%08.2f|%+.1f", 2.25, 1.125 + 0.001, 3.14159, 1.5, -1.5, 1.5),
              "2.250000|1.13|     3.142|1.5     |-0001.50|+1.5");
}

TEST(Printf, OddFormats)
{
    EXPECT_EQ(Both("100%%|%y|%k%d", 5), "100%|y|k5");
    EXPECT_EQ(Both("abc%"), "abc");
    EXPECT_EQ(Both("abc%5"), "abc");
    EXPECT_EQ(Both("abc%l"), "abc");
    EXPECT_EQ(Both("%I3d|%I65d", 5, 5), "I3d|I65d");
    EXPECT_EQ(Narrow(nullptr, 0, nullptr), -1);
}
} // namespace
