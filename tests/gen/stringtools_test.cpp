// Strings in fixed buffers, the bounded formatters and the list of owned strings.

#include <cstdarg>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/stringtools.h"
#include "tests/gen/reports.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr char nullRead[] = "**LDEBUGVALIDPTRREAD attempting to read from a null ptr";
constexpr char nullWrite[] = "**LDEBUGVALIDPTRWRITE attempting to read from a null ptr";
constexpr auto intMax = std::numeric_limits<std::int32_t>::max();
constexpr auto intMin = std::numeric_limits<std::int32_t>::min();

// Functions that must not touch what lies behind their result are given a buffer full of '#'.
template <class TChar, std::size_t Size = 400>
struct Filled
{
    TChar text[Size];
    Filled() { std::fill_n(text, Size, TChar{'#'}); }
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

TEST(Strings, BoundedCopyCutsTerminatesAndCounts)
{
    struct Case
    {
        const char* source;
        std::size_t size;
        std::size_t copied;
        const char* buffer;
    };
    const TraceCapture trace;
    for (const Case& c : {Case{"abc", 0, 0, "#####"},
                          {"abc", 1, 0, "0####"},
                          {"abc", 3, 2, "ab0##"},
                          {"abc", 4, 3, "abc0#"},
                          {"abc", 5, 3, "abc0#"},
                          {"", 4, 0, "0####"}})
    {
        Filled<WCHAR> wide;
        Filled<char> narrow;
        EXPECT_EQ(tstrlcpy(wide.text, Wide(c.source).c_str(), c.size), c.copied) << c.source << c.size;
        EXPECT_EQ(tstrlcpy(narrow.text, c.source, c.size), c.copied) << c.source << c.size;
        EXPECT_EQ(wide.First(5), c.buffer);
        EXPECT_EQ(narrow.First(5), c.buffer);
    }
    Filled<WCHAR> full;
    EXPECT_EQ(tstrlcpy(full.text, Wide(std::string(300, 'x')).c_str()), 259u);
    EXPECT_EQ(full.First(261), std::string(259, 'x') + "0#");
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Strings, CopyAppendLengthAndUnboundedFormat)
{
    const TraceCapture trace;
    Filled<WCHAR> buffer;
    EXPECT_EQ(tstrcpy(buffer.text, TEXT("one")), buffer.text);
    tstrcat(buffer.text, TEXT(" two"));
    tstrcat(buffer.text, TEXT(""));
    EXPECT_EQ(buffer.First(9), "one two0#");
    EXPECT_EQ(tstrlen(buffer.text), 7u);
    EXPECT_EQ(tstrlen(TEXT("")), 0u);
    EXPECT_EQ(tsprintf(buffer.text, TEXT("%s=%d"), TEXT("n"), -5), 4);
    EXPECT_EQ(buffer.First(7), "n=-50wo");
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Strings, NullIsReportedAndTakenAsEmpty)
{
    TraceCapture trace;
    const WCHAR* const none = nullptr;
    WCHAR buffer[LSTR];
    EXPECT_EQ(tstrlen(none), 0u);
    EXPECT_THAT(trace.Texts(), ElementsAre(nullRead));

    buffer[0] = TEXT('x');
    trace.Restart();
    EXPECT_EQ(tstrcpy(buffer, none), buffer);
    EXPECT_EQ(Utf8(buffer), "");
    EXPECT_EQ(tstrcpy(nullptr, none), nullptr);
    EXPECT_THAT(trace.Texts(), ElementsAre(nullRead, nullRead, nullWrite));

    buffer[0] = TEXT('x');
    trace.Restart();
    EXPECT_EQ(tstrlcpy(buffer, none, 5), 0u);
    EXPECT_EQ(Utf8(buffer), "");
    EXPECT_EQ(tstrlcpy(static_cast<char*>(nullptr), "text", 5), 0u);
    EXPECT_THAT(trace.Texts(), ElementsAre(nullRead, nullWrite));

    trace.Restart();
    EXPECT_EQ(tstricmp(none, TEXT("")), 0);
    EXPECT_GT(tstricmp(TEXT("a"), none), 0);
    EXPECT_EQ(ttoi(none), 0);
    EXPECT_EQ(LStringToIntDefault(none, 7), 7);
    EXPECT_EQ(LStringReplaceChar(nullptr, TEXT('a'), TEXT('b')), nullptr);
    EXPECT_EQ(trace.Texts(), Lines(5, nullRead));
}

TEST(Strings, CompareFoldsTheLettersAToZOnly)
{
    struct Case
    {
        const char* a;
        const char* b;
        int sign;
    };
    for (const Case& c : {Case{"C:\\Users\\A", "c:\\users\\a", 0},
                          {"\u00C4", "\u00E4", -1},
                          {"", "", 0},
                          {"", "a", -1},
                          {"ab", "a", 1},
                          {"a", "B", -1},
                          {"Z", "a", 1},
                          // '[' and '_' stand between the upper-case and the lower-case letters.
                          {"[", "a", -1},
                          {"_", "A", -1},
                          {"@", "`", -1},
                          {"\uFFFD", "a", 1}})
    {
        const std::int32_t result = tstricmp(Wide(c.a).c_str(), Wide(c.b).c_str());
        EXPECT_EQ(result < 0 ? -1 : result > 0 ? 1 : 0, c.sign) << c.a << " : " << c.b;
    }
}

TEST(Strings, DecimalConversionSkipsBlanksStopsAndClamps)
{
    const std::vector<std::pair<const char*, std::int32_t>> cases = {{"42", 42},
                                                                     {"  42x", 42},
                                                                     {"\t\n\v\f\r +7", 7},
                                                                     {"-12", -12},
                                                                     {"+-5", 0},
                                                                     {"--5", 0},
                                                                     {"- 5", 0},
                                                                     {"abc", 0},
                                                                     {"  ", 0},
                                                                     {"0x10", 0},
                                                                     {"00123", 123},
                                                                     {"2147483647", intMax},
                                                                     {"2147483648", intMax},
                                                                     {"-2147483648", intMin},
                                                                     {"-2147483649", intMin},
                                                                     {"99999999999", intMax},
                                                                     {"-99999999999999999999999999", intMin},
                                                                     {"18446744073709551617", intMax}};
    for (const auto& [text, value] : cases)
    {
        EXPECT_EQ(ttoi(Wide(text).c_str()), value) << text;
        EXPECT_EQ(LStringToIntDefault(Wide(text).c_str(), 7), value) << text;
    }
    EXPECT_EQ(ttoi(TEXT("")), 0);
    EXPECT_EQ(LStringToIntDefault(TEXT(""), 7), 7);
}

TEST(Strings, ReplaceCharacterInPlace)
{
    TraceCapture trace;
    const auto replace = [](const char* text, WCHAR what, WCHAR with)
    {
        Filled<WCHAR> buffer;
        tstrcpy(buffer.text, Wide(text).c_str());
        EXPECT_EQ(LStringReplaceChar(buffer.text, what, with), buffer.text);
        return buffer.First(std::char_traits<char>::length(text) + 2);
    };
    EXPECT_EQ(replace("a\\b\\c", TEXT('\\'), TEXT('_')), "a_b_c0#");
    EXPECT_EQ(replace("\\\\", TEXT('\\'), TEXT('_')), "__0#");
    EXPECT_EQ(replace("abc", TEXT('x'), TEXT('y')), "abc0#");
    EXPECT_EQ(replace("", TEXT('x'), TEXT('y')), "0#");
    EXPECT_THAT(trace.Texts(), IsEmpty());

    EXPECT_EQ(replace("a\\b\\c", TEXT('\\'), 0).substr(0, 2), "a0");
    EXPECT_THAT(trace.Texts(), ElementsAre("**LStringReplaceChar cWith == 0"));
    trace.Restart();
    EXPECT_EQ(replace("abc", TEXT('b'), TEXT('b')), "abc0#");
    EXPECT_THAT(trace.Texts(), ElementsAre("**LStringReplaceChar cWhat == cWith"));
    trace.Restart();
    EXPECT_EQ(replace("abc", 0, TEXT('x')), "abc0#");
    EXPECT_THAT(trace.Texts(), ElementsAre("**LStringReplaceChar cWhat == 0"));
    trace.Restart();
    EXPECT_EQ(replace("abc", 0, 0), "abc0#");
    EXPECT_THAT(trace.Texts(),
                ElementsAre("**LStringReplaceChar cWhat == 0", "**LStringReplaceChar cWith == 0",
                            "**LStringReplaceChar cWhat == cWith"));
}

// Both bounded formatters through their variadic front ends; the formats have no text arguments.
struct Formatted
{
    Filled<WCHAR> wide;
    Filled<char> narrow;
    TraceCapture wideTrace;
    TraceCapture narrowTrace;
    Lines wideReports;
    Lines narrowReports;

    template <class... Arguments>
    explicit Formatted(std::size_t count, const char* format, Arguments... arguments)
    {
        tsnprintf(wide.text, count, Wide(format).c_str(), arguments...);
        wideReports = wideTrace.Texts();
        narrowTrace.Restart();
        tsnprintf(narrow.text, count, format, arguments...);
        narrowReports = narrowTrace.Texts();
    }
};

TEST(Formatters, ATextThatFitsIsWrittenWithoutAReport)
{
    const Formatted exact(6, "%05d", 42);
    EXPECT_EQ(exact.wide.First(7), "000420#");
    EXPECT_EQ(exact.narrow.First(7), "000420#");
    EXPECT_THAT(exact.wideReports, IsEmpty());
    EXPECT_THAT(exact.narrowReports, IsEmpty());

    const Formatted nothing(0, "%05d", 42);
    EXPECT_EQ(nothing.wide.First(3), "###");
    EXPECT_EQ(nothing.narrow.First(3), "###");
    EXPECT_THAT(nothing.wideReports, IsEmpty());
    EXPECT_THAT(nothing.narrowReports, IsEmpty());

    const Formatted empty(1, "");
    EXPECT_EQ(empty.wide.First(2), "0#");
    EXPECT_EQ(empty.narrow.First(2), "0#");
    EXPECT_THAT(empty.wideReports, IsEmpty());

    WCHAR wide[LSTR];
    char narrow[LSTR];
    tsnprintf(wide, LSTR, TEXT("%s|%Iu|%lld|%ld|%p"), TEXT("\u00F6"), std::size_t{18446744073709551615u},
              -1LL, 5L, reinterpret_cast<void*>(0xABCDu));
    tsnprintf(narrow, LSTR, "%s|%Iu|%lld|%ld|%p", "\u00F6", std::size_t{18446744073709551615u}, -1LL, 5L,
              reinterpret_cast<void*>(0xABCDu));
    EXPECT_EQ(Utf8(wide), "\u00F6|18446744073709551615|-1|5|000000000000ABCD");
    EXPECT_EQ(Utf8(wide), std::string(narrow));
}

TEST(Formatters, ATextThatDoesNotFitIsCutAndReported)
{
    // Of exactly count characters, of more, and into room for the terminator alone.
    for (const auto& [count, cut] :
         std::vector<std::pair<std::size_t, std::string>>{{5, "0004"}, {3, "00"}, {1, ""}})
    {
        const Formatted result(count, "%05d", 42);
        EXPECT_EQ(result.wide.First(count + 1), cut + "0#") << count;
        EXPECT_EQ(result.narrow.First(count + 1), cut + "0#") << count;
        EXPECT_EQ(result.wideReports, Overflow("lw", cut)) << count;
        EXPECT_EQ(result.narrowReports, Overflow("lc", cut)) << count;
    }
    const Formatted longText(300, "%0400d", 7);
    EXPECT_EQ(longText.wide.First(301), std::string(299, '0') + "0#");
    EXPECT_EQ(longText.wideReports, Overflow("lw", std::string(259, '0')));
    EXPECT_EQ(longText.narrowReports, Overflow("lc", std::string(259, '0')));
}

TEST(Formatters, TheReportOfAWideTextIsCutTo259BytesOfUtf8)
{
    std::string text;
    for (int i = 0; i < 200; ++i)
    {
        text += "\u00F6";
    }
    Filled<WCHAR> buffer;
    TraceCapture trace;
    tsnprintf(buffer.text, 200, TEXT("%s"), Wide(text).c_str());
    EXPECT_EQ(trace.Texts(), Overflow("lw", text.substr(0, 258)));
}

TEST(Formatters, ANegativeCountIsReportedAndWritesNothing)
{
    for (const std::size_t count : {std::numeric_limits<std::size_t>::max(), std::size_t{0x80000000u}})
    {
        const Formatted result(count, "%05d", 42);
        EXPECT_EQ(result.wide.First(2), "##");
        EXPECT_EQ(result.narrow.First(2), "##");
        EXPECT_THAT(result.wideReports, ElementsAre("**lwvsnprintf called with an invalid Count (negative)"));
        EXPECT_THAT(result.narrowReports,
                    ElementsAre("**lcvsnprintf called with an invalid Count (negative)"));
    }
    // Only the lower 32 bits count.
    const Formatted low((std::size_t{1} << 32) + 4, "%d", 42);
    EXPECT_EQ(low.wide.First(3), "420");
    EXPECT_THAT(low.wideReports, IsEmpty());
}

TEST(Formatters, AConversionThatFailsShowsNoStaleMemory)
{
    // A wide character that the narrow runtime cannot convert ends the formatting with an error.
    const Formatted result(100, "ab%ls", Wide("\u20AC").c_str());
    EXPECT_EQ(result.narrow.text[99], 0);
    EXPECT_EQ(std::string(result.narrow.text).find('#'), std::string::npos) << result.narrow.text;
}

TEST(StringList, KeepsCopiesInOrderAndEndsInANullPointer)
{
    TraceCapture trace;
    const int before = AllocationCount();
    LStringList list;
    EXPECT_EQ(AllocationCount() - before, 1);
    EXPECT_EQ(list.GetCount(), 0u);
    EXPECT_EQ(list.Get(0), nullptr);

    WCHAR changing[] = {TEXT('a'), 0};
    list.Add(changing);
    changing[0] = TEXT('z');
    list.Add(TEXT(""));
    WCHAR* room = list.Add(std::size_t{LSTR});
    ASSERT_NE(room, nullptr);
    EXPECT_EQ(room[0], 0);
    tstrcpy(room, TEXT("C:\\L\u00F6schen"));
    EXPECT_NE(list.Add(std::size_t{0}), nullptr);
    ASSERT_EQ(list.GetCount(), 4u);
    EXPECT_EQ(Utf8(list.Get(0)), "a");
    EXPECT_EQ(Utf8(list.Get(1)), "");
    EXPECT_EQ(Utf8(list.Get(2)), "C:\\L\u00F6schen");
    EXPECT_EQ(Utf8(list.Get(3)), "");
    EXPECT_EQ(list.Get(4), nullptr);
    EXPECT_THAT(trace.Texts(), IsEmpty());

    list.Add(static_cast<const WCHAR*>(nullptr));
    EXPECT_EQ(Utf8(list.Get(4)), "");
    EXPECT_THAT(trace.Texts(), ElementsAre(nullRead));
}

TEST(StringList, GrowsEightfoldWhenTheArrayIsFull)
{
    LStringList list;
    const auto addUpTo = [&list](std::size_t count)
    {
        const int before = AllocationCount();
        const std::size_t strings = count - list.GetCount();
        while (list.GetCount() < count)
        {
            list.Add(Wide(std::to_string(list.GetCount())).c_str());
        }
        return AllocationCount() - before - static_cast<int>(strings); // arrays alone
    };
    EXPECT_EQ(addUpTo(255), 0);
    EXPECT_EQ(addUpTo(256), 1);
    EXPECT_EQ(addUpTo(2047), 0);
    EXPECT_EQ(addUpTo(2048), 1);
    EXPECT_EQ(addUpTo(3000), 0);
    for (std::size_t i = 0; i < 3000; ++i)
    {
        ASSERT_EQ(Utf8(list.Get(i)), std::to_string(i));
    }
    EXPECT_EQ(list.Get(3000), nullptr);
}

TEST(StringList, WithoutMemoryTheListStaysAsItWas)
{
    constexpr char noString[] =
        "**LStringListTemplate<wchar_t>::Add Unable to create new string - new failed";
    constexpr char noArray[] = "**LStringListTemplate<wchar_t>::Add Unable to resize the list - new failed";
    LStringList list;
    list.Add(TEXT("first"));
    TraceCapture trace;
    FailAllocation(0);
    EXPECT_EQ(list.Add(std::size_t{5}), nullptr);
    FailAllocation(0);
    list.Add(TEXT("lost"));
    // Sizes whose bytes would wrap to a few.
    EXPECT_EQ(list.Add(std::numeric_limits<std::size_t>::max()), nullptr);
    EXPECT_EQ(list.Add((std::numeric_limits<std::size_t>::max() >> 1) + 2), nullptr);
    EXPECT_EQ(trace.Texts(), Lines(4, noString));
    EXPECT_EQ(list.GetCount(), 1u);
    EXPECT_EQ(list.Get(1), nullptr);

    while (list.GetCount() < 255)
    {
        list.Add(TEXT("x"));
    }
    trace.Restart();
    FailAllocation(1);
    EXPECT_EQ(list.Add(std::size_t{5}), nullptr);
    EXPECT_THAT(trace.Texts(), ElementsAre(noArray));
    EXPECT_EQ(list.GetCount(), 255u);
    EXPECT_EQ(list.Get(255), nullptr);
    EXPECT_EQ(Utf8(list.Get(0)), "first");
    list.Add(TEXT("again"));
    EXPECT_EQ(Utf8(list.Get(255)), "again");
}

TEST(StringList, WithoutItsFirstArrayItStartsEmptyAndTriesAgain)
{
    FailAllocation(0);
    LStringList list;
    EXPECT_EQ(list.GetCount(), 0u);
    EXPECT_EQ(list.Get(0), nullptr);
    for (int i = 0; i < 20; ++i)
    {
        list.Add(Wide(std::to_string(i)).c_str());
    }
    ASSERT_EQ(list.GetCount(), 20u);
    EXPECT_EQ(Utf8(list.Get(0)), "0");
    EXPECT_EQ(Utf8(list.Get(19)), "19");
    EXPECT_EQ(list.Get(20), nullptr);

    FailAllocation(0);
    const LStringList unused; // nothing to release
}
} // namespace
