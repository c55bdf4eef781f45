// Strings in fixed buffers, the bounded formatters and the list of owned strings.

#include <functional>
#include <limits>

#include "gen/stringtools.h"
#include "tests/standin/plainallocation.h"
#include "tests/support/reports.h"

namespace
{
using namespace sndxtest;

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
    const std::pair<std::size_t, const char*> cases[] = {
        {0, "#####"}, {1, "0####"}, {3, "ab0##"}, {4, "abc0#"}, {5, "abc0#"}};
    for (const auto& [size, result] : cases)
    {
        Filled<WCHAR> wide;
        Filled<char> narrow;
        const std::size_t copied = size == 0 ? 0 : std::min<std::size_t>(size - 1, 3);
        EXPECT_EQ(tstrlcpy(wide.text, TEXT("abc"), size), copied) << size;
        EXPECT_EQ(tstrlcpy(narrow.text, "abc", size), copied) << size;
        EXPECT_EQ(wide.First(5), result);
        EXPECT_EQ(narrow.First(5), result);
    }
    Filled<WCHAR> buffer;
    EXPECT_EQ(tstrlcpy(buffer.text, Wide(std::string(300, 'x')).c_str()), 259u);
    EXPECT_EQ(buffer.First(261), std::string(259, 'x') + "0#");
    EXPECT_EQ(tstrcpy(buffer.text, TEXT("one")), buffer.text);
    tstrcat(buffer.text, TEXT(" two"));
    EXPECT_EQ(buffer.First(9), "one two0x");
    EXPECT_EQ(tstrlen(buffer.text), 7u);
    EXPECT_EQ(tsprintf(buffer.text, TEXT("%s=%d"), TEXT("n"), -5), 4);
    EXPECT_EQ(buffer.First(7), "n=-50wo");
    EXPECT_EQ(trace.Texts(), Lines());
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
    const char* const ascending[] = {"",  "@", "[", "`",      "A",      "ab",
                                     "B", "z", "{", "\u00C4", "\u00E4", "\uFFFD"};
    for (std::size_t i = 1; i < std::size(ascending); ++i)
    {
        const WideString lower = Wide(ascending[i - 1]);
        const WideString upper = Wide(ascending[i]);
        EXPECT_LT(tstricmp(lower.c_str(), upper.c_str()), 0) << ascending[i];
        EXPECT_GT(tstricmp(upper.c_str(), lower.c_str()), 0) << ascending[i];
    }
}

TEST(Strings, DecimalConversionSkipsBlanksStopsAndClamps)
{
    constexpr auto most = std::numeric_limits<std::int32_t>::max();
    constexpr auto least = std::numeric_limits<std::int32_t>::min();
    const std::pair<std::int32_t, Lines> numbers[] = {
        {42, {"  42x", "+42", "\t\n\v\f\r 0042"}},
        {-7, {"-7"}},
        {0, {"+-5", "- 5", "abc", "  "}},
        {most, {"2147483647", "2147483648", "99999999999", "18446744073709551617"}},
        {least, {"-2147483648", "-2147483649", "-99999999999999999999999999"}}};
    for (const auto& [number, texts] : numbers)
    {
        for (const std::string& text : texts)
        {
            EXPECT_EQ(ttoi(Wide(text).c_str()), number) << text;
            EXPECT_EQ(LStringToIntDefault(Wide(text).c_str(), 7), number) << text;
        }
    }
    EXPECT_EQ(ttoi(TEXT("")), 0);
    EXPECT_EQ(LStringToIntDefault(TEXT(""), 7), 7);
}

TEST(Strings, ReplaceCharacterInPlace)
{
    const std::string whatNull = "**LStringReplaceChar cWhat == 0";
    const std::string withNull = "**LStringReplaceChar cWith == 0";
    const std::string same = "**LStringReplaceChar cWhat == cWith";
    const auto replaced = [](const char* text, WCHAR what, WCHAR with, const Lines& reports)
    {
        Filled<WCHAR> buffer;
        tstrcpy(buffer.text, Wide(text).c_str());
        EXPECT_EQ(Traced([&] { EXPECT_EQ(LStringReplaceChar(buffer.text, what, with), buffer.text); }),
                  reports);
        return buffer.First(5);
    };
    EXPECT_EQ(replaced("a\\b\\", TEXT('\\'), TEXT('_'), {}), "a_b_0");
    EXPECT_EQ(replaced("a\\b\\", TEXT('\\'), 0, {withNull}), "a0b00") << "each becomes a terminator";
    EXPECT_EQ(replaced("abc", TEXT('b'), TEXT('b'), {same}), "abc0#");
    EXPECT_EQ(replaced("abc", 0, TEXT('x'), {whatNull}), "abc0#");
    EXPECT_EQ(replaced("abc", 0, 0, {whatNull, withNull, same}), "abc0#");
}

// What both bounded formatters must leave of "####…". Their reports ("lw" and "lc") differ in the name only.
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

TEST(Formatters, ATextThatFitsIsWrittenAndANegativeCountReported)
{
    const auto nothing = [](const std::string&) { return Lines(); };
    const auto negative = [](const std::string& formatter)
    { return Lines{"**" + formatter + "vsnprintf called with an invalid Count (negative)"}; };
    ExpectFormatted(sizeMax, "##", negative, "%05d", 42);
    ExpectFormatted(std::size_t{1} << 31, "##", negative, "%05d", 42);
    ExpectFormatted(6, "000420#", nothing, "%05d", 42);
    ExpectFormatted(0, "###", nothing, "%05d", 42);
    ExpectFormatted(1, "0#", nothing, "");
    ExpectFormatted(301, std::string(301, '0') + "#", nothing, "%0300d", 0);
    ExpectFormatted((std::size_t{1} << 32) + 4, "420##", nothing, "%d", 42); // the lower 32 bits count
    ExpectFormatted(LSTR, "18446744073709551615|-1|000000000000ABCD0", nothing, "%Iu|%lld|%p", sizeMax, -1LL,
                    reinterpret_cast<void*>(0xABCDu));
}

TEST(Formatters, ATextThatDoesNotFitIsCutAndReported)
{
    // Of exactly count characters, of one more and of many, and into room for the terminator alone.
    for (const std::size_t count : {300, 299, 3, 1})
    {
        const std::string cut(count - 1, '0');
        ExpectFormatted(
            count, cut + "0#", [&](const std::string& formatter) { return Overflow(formatter, cut); },
            "%0300d", 7);
    }
    std::string text;
    for (int i = 0; i < 200; ++i)
    {
        text += "\u00F6";
    }
    Filled<WCHAR> buffer;
    EXPECT_EQ(Traced([&] { tsnprintf(buffer.text, 200, TEXT("%s"), Wide(text).c_str()); }),
              Overflow("lw", text.substr(0, 258)));
    // Never inside a character, neither the text nor what the report shows of it.
    const std::string pairs = std::string(258, 'x') + "\U0001F600\U0001F600";
    EXPECT_EQ(Traced([&] { tsnprintf(buffer.text, 262, TEXT("%s"), Wide(pairs).c_str()); }),
              Overflow("lw", std::string(258, 'x')));
    EXPECT_EQ(Utf8(buffer.text), std::string(258, 'x') + "\U0001F600");
    Filled<char> narrow;
    EXPECT_EQ(Traced([&] { tsnprintf(narrow.text, 265, "%s", pairs.c_str()); }),
              Overflow("lc", std::string(258, 'x')));
    EXPECT_EQ(std::string(narrow.text), std::string(258, 'x') + "\U0001F600");
    // Every size, also behind the last character.
    const std::string mixed = "a\u00F6\u20AC\U0001F600z";
    const std::size_t bytes[] = {0, 1, 3, 6, 10, 11};
    const std::size_t units[] = {0, 1, 2, 3, 5, 6};
    for (std::size_t size = 1; size <= mixed.size() + 2; ++size)
    {
        const auto whole = [size](const std::size_t(&ends)[6])
        { return std::upper_bound(ends, ends + 6, size - 1) - ends - 1; };
        tsnprintf(narrow.text, size, "%s", mixed.c_str());
        EXPECT_EQ(std::string(narrow.text), mixed.substr(0, bytes[whole(bytes)])) << size;
        tsnprintf(buffer.text, size, TEXT("%s"), Wide(mixed).c_str());
        EXPECT_EQ(Utf8(buffer.text), mixed.substr(0, bytes[whole(units)])) << size;
    }
    // A wide character that the narrow runtime cannot convert ends the formatting without a terminator.
    narrow = Filled<char>();
    tsnprintf(narrow.text, 100, "ab%ls", Wide("\u20AC").c_str());
    EXPECT_EQ(narrow.First(100).find('#'), std::string::npos) << "stale memory";
}

TEST(StringList, WithoutMemoryTheListStaysAsItWasAndTriesAgain)
{
    constexpr char failed[] = "**LStringListTemplate<wchar_t>::Add Unable to create new string - new failed";
    constexpr char small[] = "**LStringListTemplate<wchar_t>::Add Unable to resize the list - new failed";
    LStringList list;
    FailAllocation(0);
    LStringList late; // without its first array
    // Also sizes whose bytes wrap, to a few.
    for (const std::size_t size : {std::size_t{5}, sizeMax, (sizeMax >> 1) + 2})
    {
        FailAllocation(0, size == 5);
        EXPECT_EQ(Traced([&] { EXPECT_EQ(list.Add(size), nullptr); }), Lines{failed});
        EXPECT_EQ(list.GetCount(), 0u);
    }
    const std::pair<LStringList*, std::vector<std::size_t>> lists[] = {{&list, {255, 2047}},
                                                                       {&late, {0, 7, 63, 511}}};
    for (const auto& [filled, expected] : lists)
    {
        std::vector<std::size_t> grown; // the counts at which a new array is needed
        for (std::size_t i = 0; i < 2048; ++i)
        {
            FailAllocation(1); // the first is the string
            const TraceCapture trace;
            WCHAR* text = filled->Add(std::size_t{5});
            FailAllocation(0, 0);
            if (text == nullptr)
            {
                grown.push_back(i);
                EXPECT_EQ(trace.Texts(), Lines{small});
                EXPECT_EQ(filled->GetCount(), i);
                EXPECT_EQ(filled->Get(i), nullptr);
                text = filled->Add(std::size_t{5});
            }
            tstrcpy(text, Wide(std::to_string(i)).c_str());
        }
        EXPECT_EQ(grown, expected);
        EXPECT_EQ(Utf8(filled->Get(0)) + Utf8(filled->Get(254)) + Utf8(filled->Get(2047)), "02542047");
        EXPECT_EQ(filled->Get(2048), nullptr);
        WCHAR changing[] = {TEXT('a'), 0};
        filled->Add(changing);
        changing[0] = TEXT('z');
        EXPECT_STREQ(Utf8(filled->Get(2048)).c_str(), "a") << "a copy";
        EXPECT_EQ(filled->Add(std::size_t{0})[0], 0) << "room for the terminator all the same";
    }
}
} // namespace
