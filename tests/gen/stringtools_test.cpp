// Strings in fixed buffers, the bounded formatters and the list of owned strings.

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/stringtools.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/reports.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto sizeMax = std::numeric_limits<std::size_t>::max();
const WCHAR* const none = nullptr;

// A buffer full of '#', so that what must not be touched shows.
template <class TChar>
struct Filled
{
    TChar text[400];
    Filled() { std::fill_n(text, 400, TChar{'#'}); }
    // The first characters as they are, terminators shown as '0'.
    std::string First(std::size_t count) const
    {
        std::string result;
        for (std::size_t i = 0; i < count; ++i)
        {
            result += text[i] == 0 ? '0' : static_cast<char>(text[i]);
        }
        return result;
    }
};

TEST(Strings, CopiesAndFormats)
{
    const TraceCapture trace;
    const std::vector<std::pair<std::size_t, const char*>> cases = {
        {0, "#####"}, {1, "0####"}, {3, "ab0##"}, {4, "abc0#"}, {5, "abc0#"}};
    for (const auto& [size, buffer] : cases)
    {
        Filled<WCHAR> wide;
        Filled<char> narrow;
        const std::size_t copied = size == 0 ? 0 : std::min<std::size_t>(size - 1, 3);
        EXPECT_EQ(tstrlcpy(wide.text, TEXT("abc"), size), copied) << size;
        EXPECT_EQ(tstrlcpy(narrow.text, "abc", size), copied) << size;
        EXPECT_EQ(wide.First(5), buffer);
        EXPECT_EQ(narrow.First(5), buffer);
    }
    Filled<WCHAR> full;
    EXPECT_EQ(tstrlcpy(full.text, Wide(std::string(300, 'x')).c_str()), 259u);
    EXPECT_EQ(full.First(261), std::string(259, 'x') + "0#");

    Filled<WCHAR> buffer;
    EXPECT_EQ(tstrcpy(buffer.text, TEXT("one")), buffer.text);
    tstrcat(buffer.text, TEXT(" two"));
    tstrcat(buffer.text, TEXT(""));
    EXPECT_EQ(buffer.First(9), "one two0#");
    EXPECT_EQ(tstrlen(buffer.text), 7u);
    EXPECT_EQ(tsprintf(buffer.text, TEXT("%s=%d"), TEXT("n"), -5), 4);
    EXPECT_EQ(buffer.First(7), "n=-50wo");
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Strings, NullIsReportedAndTakenAsEmpty)
{
    const TraceCapture trace;
    WCHAR buffer[] = {TEXT('x'), TEXT('x')};
    EXPECT_EQ(tstrcpy(nullptr, none), nullptr);
    EXPECT_EQ(tstrlcpy(static_cast<char*>(nullptr), "text", 5), 0u);
    EXPECT_EQ(tstrcpy(buffer, none), buffer);
    EXPECT_EQ(tstrlcpy(buffer + 1, none, 2), 0u);
    EXPECT_EQ(buffer[0] + buffer[1], 0);
    EXPECT_EQ(tstrlen(none), 0u);
    EXPECT_EQ(tstricmp(none, TEXT("")), 0);
    EXPECT_GT(tstricmp(TEXT("a"), none), 0);
    EXPECT_EQ(ttoi(none), 0);
    EXPECT_EQ(LStringToIntDefault(none, 7), 7);
    EXPECT_EQ(LStringReplaceChar(nullptr, TEXT('a'), TEXT('b')), nullptr);
    EXPECT_EQ(trace.Texts(), (Lines{nullRead, nullWrite, nullWrite} + Lines(8, nullRead)));
}

TEST(Strings, CompareFoldsTheLettersAToZOnly)
{
    EXPECT_EQ(tstricmp(TEXT("C:\\Users\\AZ"), TEXT("c:\\uSERS\\az")), 0);
    const std::vector<const char*> ascending = {"",  "@", "[", "_",      "`",      "A",     "ab",
                                                "B", "z", "{", "\u00C4", "\u00E4", "\uFFFD"};
    for (std::size_t a = 0; a < ascending.size(); ++a)
    {
        for (std::size_t b = 0; b < ascending.size(); ++b)
        {
            const std::int32_t result = tstricmp(Wide(ascending[a]).c_str(), Wide(ascending[b]).c_str());
            EXPECT_EQ(result < 0, a < b) << ascending[a] << " : " << ascending[b];
            EXPECT_EQ(result > 0, a > b) << ascending[a] << " : " << ascending[b];
        }
    }
}

TEST(Strings, DecimalConversionSkipsBlanksStopsAndClamps)
{
    const auto values = [](const std::vector<const char*>& texts)
    {
        std::vector<std::int32_t> result;
        for (const char* text : texts)
        {
            result.push_back(ttoi(Wide(text).c_str()));
            EXPECT_EQ(LStringToIntDefault(Wide(text).c_str(), 7), result.back()) << text;
        }
        return result;
    };
    EXPECT_THAT(values({"42", "  42x", "\t\n\v\f\r +7", "-12", "00123"}), ElementsAre(42, 42, 7, -12, 123));
    EXPECT_THAT(values({"+-5", "--5", "- 5", "abc", "  ", "0x10"}), Each(0));
    EXPECT_THAT(values({"2147483647", "2147483648", "99999999999", "18446744073709551617"}),
                Each(std::numeric_limits<std::int32_t>::max()));
    EXPECT_THAT(values({"-2147483648", "-2147483649", "-99999999999999999999999999"}),
                Each(std::numeric_limits<std::int32_t>::min()));
    EXPECT_EQ(ttoi(TEXT("")), 0);
    EXPECT_EQ(LStringToIntDefault(TEXT(""), 7), 7);
}

TEST(Strings, ReplaceCharacterInPlace)
{
    const std::string whatNull = "**LStringReplaceChar cWhat == 0";
    const std::string withNull = "**LStringReplaceChar cWith == 0";
    const std::string same = "**LStringReplaceChar cWhat == cWith";
    const auto expect = [](const char* text, WCHAR what, WCHAR with, const char* result, const Lines& reports)
    {
        Filled<WCHAR> buffer;
        tstrcpy(buffer.text, Wide(text).c_str());
        EXPECT_EQ(Traced([&] { EXPECT_EQ(LStringReplaceChar(buffer.text, what, with), buffer.text); }),
                  reports);
        EXPECT_EQ(buffer.First(std::char_traits<char>::length(result)), result);
    };
    expect("a\\b\\", TEXT('\\'), TEXT('_'), "a_b_0#", {});
    expect("", TEXT('x'), TEXT('y'), "0#", {});
    expect("a\\b", TEXT('\\'), 0, "a0", {withNull});
    expect("abc", TEXT('b'), TEXT('b'), "abc0#", {same});
    expect("abc", 0, TEXT('x'), "abc0#", {whatNull});
    expect("abc", 0, 0, "abc0#", {whatNull, withNull, same});
}

// What both bounded formatters, "lw" and "lc", must leave of "####…" and report.
template <class... Arguments>
void ExpectFormatted(std::size_t count, const std::string& text,
                     const std::function<Lines(const std::string&)>& reports, const char* format,
                     Arguments... arguments)
{
    Filled<WCHAR> wide;
    Filled<char> narrow;
    EXPECT_EQ(Traced([&] { tsnprintf(wide.text, count, Wide(format).c_str(), arguments...); }),
              reports("lw"));
    EXPECT_EQ(Traced([&] { tsnprintf(narrow.text, count, format, arguments...); }), reports("lc"));
    EXPECT_EQ(wide.First(text.size()), text) << count;
    EXPECT_EQ(narrow.First(text.size()), text) << count;
}

TEST(Formatters, ATextThatFitsIsWrittenWithoutAReport)
{
    const auto nothing = [](const std::string&) { return Lines(); };
    ExpectFormatted(6, "000420#", nothing, "%05d", 42);
    ExpectFormatted(0, "###", nothing, "%05d", 42);
    ExpectFormatted(1, "0#", nothing, "");
    ExpectFormatted((std::size_t{1} << 32) + 4, "4200#", nothing, "%d", 42); // the lower 32 bits count
    ExpectFormatted(LSTR, "18446744073709551615|-1|5|000000000000ABCD0", nothing, "%Iu|%lld|%ld|%p", sizeMax,
                    -1LL, 5L, reinterpret_cast<void*>(0xABCDu));
}

TEST(Formatters, ATextThatDoesNotFitIsCutAndReported)
{
    // Of exactly count characters, of more, into room for the terminator alone, and longer than the report.
    for (const std::size_t count : {400, 300, 3, 1})
    {
        const std::string cut(count - 1, '0');
        ExpectFormatted(
            count, cut + "0" + (count < 400 ? "#" : ""),
            [&](const std::string& formatter) { return Overflow(formatter, cut); }, "%0400d", 7);
    }
    std::string text;
    for (int i = 0; i < 200; ++i)
    {
        text += "\u00F6";
    }
    Filled<WCHAR> buffer;
    EXPECT_EQ(Traced([&] { tsnprintf(buffer.text, 200, TEXT("%s"), Wide(text).c_str()); }),
              Overflow("lw", text.substr(0, 258)));
}

TEST(Formatters, ANegativeCountIsReportedAndWritesNothing)
{
    for (const std::size_t count : {sizeMax, std::size_t{1} << 31})
    {
        ExpectFormatted(
            count, "##",
            [](const std::string& formatter)
            { return Lines{"**" + formatter + "vsnprintf called with an invalid Count (negative)"}; },
            "%05d", 42);
    }
}

TEST(Formatters, AConversionThatFailsShowsNoStaleMemory)
{
    // A wide character that the narrow runtime cannot convert ends the formatting with an error.
    Filled<char> narrow;
    tsnprintf(narrow.text, 100, "ab%ls", Wide("\u20AC").c_str());
    EXPECT_EQ(narrow.text[99], 0);
    EXPECT_EQ(std::string(narrow.text).find('#'), std::string::npos) << narrow.text;
}

TEST(StringList, KeepsCopiesInOrderAndEndsInANullPointer)
{
    LStringList list;
    EXPECT_EQ(list.GetCount(), 0u);
    EXPECT_EQ(list.Get(0), nullptr);
    WCHAR changing[] = {TEXT('a'), 0};
    list.Add(changing);
    changing[0] = TEXT('z');
    WCHAR* room = list.Add(std::size_t{LSTR});
    ASSERT_NE(room, nullptr);
    EXPECT_EQ(room[0], 0);
    tstrcpy(room, TEXT("C:\\L\u00F6schen"));
    EXPECT_NE(list.Add(std::size_t{0}), nullptr);
    EXPECT_THAT(Traced([&] { list.Add(none); }), ElementsAre(nullRead));
    Lines texts;
    for (std::uint64_t i = 0; i < list.GetCount(); ++i)
    {
        texts.push_back(Utf8(list.Get(i)));
    }
    EXPECT_THAT(texts, ElementsAre("a", "C:\\L\u00F6schen", "", ""));
    EXPECT_EQ(list.Get(4), nullptr);
}

// Adds the numbers from 0 on, each first without memory for an array; returns where the list needed one.
std::vector<std::size_t> Fill(LStringList& list, std::size_t count)
{
    std::vector<std::size_t> grown;
    for (std::size_t i = 0; i < count; ++i)
    {
        FailAllocation(1); // the first is the string
        WCHAR* text = list.Add(std::size_t{5});
        FailAllocation(0, 0);
        if (text == nullptr)
        {
            grown.push_back(i);
            EXPECT_EQ(list.GetCount(), i);
            EXPECT_EQ(list.Get(i), nullptr);
            text = list.Add(std::size_t{5});
        }
        tstrcpy(text, Wide(std::to_string(i)).c_str());
    }
    for (std::size_t i = 0; i < count; ++i)
    {
        EXPECT_EQ(Utf8(list.Get(i)), std::to_string(i));
    }
    EXPECT_EQ(list.Get(count), nullptr);
    return grown;
}

TEST(StringList, WithoutMemoryTheListStaysAsItWas)
{
    LStringList list;
    FailAllocation(0);
    LStringList late; // without its first array it tries again
    TraceCapture trace;
    for (const std::size_t size : {std::size_t{5}, sizeMax, (sizeMax >> 1) + 2}) // bytes that wrap to a few
    {
        FailAllocation(0, size == 5);
        EXPECT_EQ(list.Add(size), nullptr);
        EXPECT_EQ(list.GetCount(), 0u);
    }
    EXPECT_EQ(trace.Texts(),
              Lines(3, "**LStringListTemplate<wchar_t>::Add Unable to create new string - new failed"));
    trace.Restart();
    EXPECT_THAT(Fill(list, 2048), ElementsAre(255, 2047));
    EXPECT_THAT(Fill(late, 64), ElementsAre(0, 7, 63));
    EXPECT_EQ(trace.Texts(),
              Lines(5, "**LStringListTemplate<wchar_t>::Add Unable to resize the list - new failed"));
}
} // namespace
