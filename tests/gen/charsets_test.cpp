// Conversion between UTF-16 and UTF-8 in fixed buffers.

#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/charsets.h"
#include "gen/types.h"
#include "tests/gen/reports.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const WideString loneHigh = {WCHAR{'a'}, static_cast<WCHAR>(0xD83D), WCHAR{'b'}};
const WideString loneLow = {static_cast<WCHAR>(0xDE00), WCHAR{'b'}};
constexpr char grinning[] = "\U0001F600";

// The result and one byte behind the buffer, which must stay '#'.
std::string ToUtf8(const WideString& text, std::size_t size)
{
    std::string buffer(size + 1, '#');
    LCopyUTF8FromUnicode(buffer.data(), text.c_str(), size);
    EXPECT_EQ(buffer[size], '#') << "written behind the buffer";
    return buffer.c_str();
}

WideString ToWide(const std::string& text, std::size_t size)
{
    WideString buffer(size + 1, TEXT('#'));
    LCopyUnicodeFromUTF8(buffer.data(), text.c_str(), size);
    EXPECT_EQ(buffer[size], TEXT('#')) << "written behind the buffer";
    return buffer.c_str();
}

TEST(Charsets, TextsThatFitAreConvertedWhole)
{
    const TraceCapture trace;
    for (const std::string text : {"", "a", "L\u00F6schen", "\u20AC", "x\U0001F600y"})
    {
        EXPECT_EQ(ToUtf8(Wide(text), text.size() + 1), text);
        EXPECT_EQ(ToWide(text, Wide(text).size() + 1), Wide(text)) << text;
        EXPECT_EQ(ToUtf8(Wide(text), 100), text);
    }
    EXPECT_EQ(std::string("L\u00F6schen").size(), 8u);
    EXPECT_EQ(Wide("L\u00F6schen").size(), 7u);
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Charsets, InvalidInputBecomesTheReplacementCharacter)
{
    EXPECT_EQ(ToUtf8(loneHigh, 100), "a\uFFFD"
                                     "b");
    EXPECT_EQ(ToUtf8(loneLow, 100), "\uFFFD"
                                    "b");
    EXPECT_EQ(Utf8(ToWide("a\xFF"
                          "b",
                          100)),
              "a\uFFFD"
              "b");
}

TEST(Charsets, TextsThatDoNotFitAreCutAtACharacter)
{
    const TraceCapture trace;
    const std::string path(300, 'x');
    EXPECT_EQ(ToUtf8(Wide(path), LSTR), path.substr(0, 259));
    EXPECT_EQ(ToWide(path, LSTR), Wide(path.substr(0, 259)));
    EXPECT_EQ(ToUtf8(Wide("abc"), 1), "");
    EXPECT_EQ(ToWide("abc", 1), Wide(""));

    // 2, 3 and 4 bytes a character: every size between leaves the last whole character.
    const std::string text = "a\u00F6\u20AC\U0001F600z";
    const std::vector<std::size_t> ends = {0, 1, 3, 6, 10, 11};
    for (std::size_t size = 1; size <= text.size() + 1; ++size)
    {
        std::size_t expected = 0;
        for (const std::size_t end : ends)
        {
            expected = end <= size - 1 ? end : expected;
        }
        EXPECT_EQ(ToUtf8(Wide(text), size), text.substr(0, expected)) << size;
    }
    // A pair of surrogates is one character.
    EXPECT_EQ(ToWide(std::string("ab") + grinning + "c", 4), Wide("ab"));
    EXPECT_EQ(ToWide(std::string("ab") + grinning + "c", 5), Wide(std::string("ab") + grinning));
    EXPECT_EQ(ToWide(std::string("ab") + grinning + "c", 6), Wide(std::string("ab") + grinning + "c"));
    // What is cut off may be invalid.
    EXPECT_EQ(ToUtf8(loneHigh, 4), "a");
    EXPECT_EQ(ToUtf8(loneHigh, 5), "a\uFFFD");
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Charsets, SizeZeroOrNegativeIsReportedAndWritesNothing)
{
    for (const std::size_t size :
         {std::size_t{0}, std::numeric_limits<std::size_t>::max(), std::size_t{0x80000000u}})
    {
        const TraceCapture trace;
        char narrow[2] = {'#', '#'};
        WCHAR wide[2] = {TEXT('#'), TEXT('#')};
        LCopyUTF8FromUnicode(narrow, TEXT("a"), size);
        LCopyUnicodeFromUTF8(wide, "a", size);
        EXPECT_EQ(narrow[0], '#');
        EXPECT_EQ(wide[0], TEXT('#'));
        EXPECT_THAT(trace.Texts(), ElementsAre("**LCopyUTF8FromUnicode called with BufferSize <= 0",
                                               "**LCopyUnicodeFromUTF8 called with BufferSizeChars <= 0"));
    }
}

TEST(Charsets, ANullSourceIsReportedAndTakenAsEmpty)
{
    const TraceCapture trace;
    char narrow[2] = {'#', '#'};
    WCHAR wide[2] = {TEXT('#'), TEXT('#')};
    LCopyUTF8FromUnicode(narrow, nullptr, 2);
    LCopyUnicodeFromUTF8(wide, nullptr, 2);
    EXPECT_EQ(narrow[0], 0);
    EXPECT_EQ(wide[0], 0);
    const std::string null = "**LDEBUGVALIDPTRREAD attempting to read from a null ptr";
    EXPECT_THAT(trace.Texts(), ElementsAre(null, null));
}

TEST(Charsets, ConversionInPlaceIsReportedAndCarriesOn)
{
    const TraceCapture trace;
    alignas(WCHAR) char buffer[64] = {};
    LCopyUTF8FromUnicode(buffer, reinterpret_cast<const WCHAR*>(buffer), 32);
    LCopyUnicodeFromUTF8(reinterpret_cast<WCHAR*>(buffer), buffer, 32);
    EXPECT_THAT(
        Reports(trace),
        ElementsAre(
            Assertion("LCopyUTF8FromUnicode", "(void*)(szUTF8) != (void*)(szUnicode)", "gen/charsets.cpp"),
            Assertion("LCopyUnicodeFromUTF8", "(void*)(szUnicode) != (void*)(szUTF8)", "gen/charsets.cpp")));
}
} // namespace
