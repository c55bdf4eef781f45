// The family of trace operations: what each of them puts into a line.

#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "tests/gen/reports.h"
#include "tests/support/text.h"

namespace
{
using namespace sndxtest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t longestText = 8191 - 20 - 2; // of a line, without stamp and CR LF

std::string Repeat(const std::string& text, std::size_t count)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
    {
        result += text;
    }
    return result;
}

TEST(Trace, PlainTextsAsOrdinaryAndErrorLines)
{
    const TraceCapture trace;
    LDebugWriteLine("a", false);
    LDebugWriteLine("b", true);
    LDebugWriteLineW(TEXT("L\u00F6schen"), false);
    LDebugWriteLineW(TEXT("\u20AC"), true);
    LDebugTrace("L\u00F6schen");
    LDebugTraceError("100%s");
    LDebugTrace("");
    EXPECT_THAT(trace.Texts(),
                ElementsAre("a", "**b", "L\u00F6schen", "**\u20AC", "L\u00F6schen", "**100%s", ""));
}

TEST(Trace, LineBreaksInATextStayAsTheyAre)
{
    const TraceCapture trace;
    LDebugTrace("one\r\n   two\n");
    LDebugTrace("three\r\n");
    EXPECT_THAT(trace.Texts(), ElementsAre("one\r\n   two\n", "three\r\n"));
}

TEST(Trace, PrefixAndValue)
{
    const TraceCapture trace;
    LDebugTrace("n=", "v");
    LDebugTraceError("n=", "v");
    LDebugTrace("w=", TEXT("\u00F6"));
    LDebugTraceError("w=", TEXT("\u00F6"));
    LDebugTrace("i=", std::numeric_limits<std::int64_t>::min());
    LDebugTraceError("i=", std::int64_t{4294967296});
    LDebugTraceValue("i=", std::numeric_limits<std::int32_t>::min(), false);
    LDebugTraceValue("i=", std::int32_t{7}, true);
    LDebugTraceValue("\u00E4=", "\u00F6", true);
    LDebugTraceValue(TEXT("\u00E4="), TEXT("\u00F6"), false);
    LDebugTraceValue(TEXT("%s="), TEXT("%d"), true);
    EXPECT_THAT(trace.Texts(), ElementsAre("n=v", "**n=v", "w=\u00F6", "**w=\u00F6", "i=-9223372036854775808",
                                           "**i=4294967296", "i=-2147483648", "**i=7", "**\u00E4=\u00F6",
                                           "\u00E4=\u00F6", "**%s=%d"));
}

TEST(Trace, ANullValueIsNamed)
{
    const TraceCapture trace;
    LDebugTrace("n=", static_cast<const char*>(nullptr));
    LDebugTraceError("w=", static_cast<const WCHAR*>(nullptr));
    LDebugTraceValue(TEXT("W="), nullptr, false);
    EXPECT_THAT(trace.Texts(), ElementsAre("n=!!! NULL !!!", "**w=!!! NULL !!!", "W=!!! NULL !!!"));
}

TEST(Trace, AWideValueBehindANarrowPrefixIsCutTo259Bytes)
{
    const TraceCapture trace;
    const std::string prefix(300, 'p');
    LDebugTrace(prefix.c_str(), Wide(std::string(259, 'x')).c_str());
    LDebugTrace(prefix.c_str(), Wide(std::string(260, 'x')).c_str());
    LDebugTrace("", Wide(Repeat("\u00F6", 200)).c_str());
    EXPECT_THAT(trace.Texts(), ElementsAre(prefix + std::string(259, 'x'), prefix + std::string(259, 'x'),
                                           Repeat("\u00F6", 129)));
}

TEST(Trace, FunctionLines)
{
    const TraceCapture trace;
    LDebugTraceFunction("LLockObject::Unlock", true, "Object never locked before calling Unlock. 100%s");
    LDebugTraceFunctionF("F", false, "%d of %s", 3, "n");
    LDebugTraceFunctionF("F<\u00F6>", true, TEXT("%s at %p"), TEXT("\u20AC"), reinterpret_cast<void*>(0xAB));
    LDebugTraceFunctionF(std::string(300, 'f').c_str(), false, TEXT("x"));
    LDebugTraceFunction(std::string(300, 'f').c_str(), false, "x");
    EXPECT_THAT(trace.Texts(),
                ElementsAre("**LLockObject::Unlock Object never locked before calling Unlock. 100%s",
                            "F 3 of n", "**F<\u00F6> \u20AC at 00000000000000AB",
                            std::string(259, 'f') + " x", std::string(300, 'f') + " x"));
}

TEST(Trace, FormattedLinesAreCutTo511CharactersWithoutAReport)
{
    const TraceCapture trace;
    LDebugTraceF("%s|%d|%Iu", "a", -1, std::size_t{5});
    LDebugTraceErrorF("0x%p", reinterpret_cast<void*>(0xAB));
    LDebugTraceF("%s", std::string(511, 'x').c_str());
    LDebugTraceErrorF("%s", std::string(512, 'x').c_str());
    LDebugTraceF("%s", std::string(9000, 'x').c_str());
    EXPECT_THAT(trace.Texts(), ElementsAre("a|-1|5", "**0x00000000000000AB", std::string(511, 'x'),
                                           "**" + std::string(511, 'x'), std::string(511, 'x')));
}

// The lines of one trace call whose line was too long for the line's buffer: the two reports, and the line.
void ExpectCut(const std::vector<std::string>& texts, std::size_t first, const std::string& cut)
{
    ASSERT_EQ(texts.size(), first + 3);
    const std::vector<std::string> reports = Overflow("lc", "");
    EXPECT_EQ(texts[first], reports[0]);
    // The report shows the line itself, with its stamp of 20 characters.
    EXPECT_TRUE(texts[first + 1].starts_with(reports[1])) << texts[first + 1];
    EXPECT_EQ(texts[first + 1].substr(reports[1].size() + 20), cut.substr(0, 239));
    EXPECT_EQ(texts[first + 2], cut);
}

TEST(Trace, ALineOfMoreThan8191BytesIsCutAndReportedBefore)
{
    const std::string fits(longestText, 'x');
    TraceCapture trace;
    LDebugTrace(fits.c_str());
    EXPECT_THAT(trace.Texts(), ElementsAre(fits));

    trace.Restart();
    LDebugTrace((fits + "x").c_str());
    ExpectCut(trace.Texts(), 0, fits);
    trace.Restart();
    LDebugWriteLineW(Wide(std::string(9000, 'x')).c_str(), false);
    ExpectCut(trace.Texts(), 0, fits);
    trace.Restart();
    // The narrow formatter of function lines cuts by itself and reports nothing.
    LDebugTraceFunction("F", false, std::string(9000, 'x').c_str());
    ExpectCut(trace.Texts(), 0, "F " + std::string(longestText - 2, 'x'));
}

TEST(Trace, AValueOfMoreThan8191CharactersIsReportedByItsFormatterFirst)
{
    const std::string value(9000, 'x');
    const std::string cut(longestText, 'x');
    for (const bool wide : {false, true})
    {
        const TraceCapture trace;
        if (wide)
        {
            LDebugTraceValue(TEXT(""), Wide(value).c_str(), false);
        }
        else
        {
            LDebugTraceValue("", value.c_str(), false);
        }
        const std::vector<std::string> texts = trace.Texts();
        ASSERT_EQ(texts.size(), 5u);
        EXPECT_EQ(std::vector<std::string>(texts.begin(), texts.begin() + 2),
                  Overflow(wide ? "lw" : "lc", std::string(259, 'x')));
        ExpectCut(texts, 2, cut);
    }
    const TraceCapture trace;
    LDebugTraceFunctionF("F", false, TEXT("%s"), Wide(value).c_str());
    const std::vector<std::string> texts = trace.Texts();
    ASSERT_EQ(texts.size(), 5u);
    EXPECT_EQ(texts[0], Overflow("lw", "")[0]);
    ExpectCut(texts, 2, "F " + std::string(longestText - 2, 'x'));
}

TEST(Trace, ACutLineEndsAtACharacter)
{
    for (const std::string character : {"\u00F6", "\u20AC", "\U0001F600"})
    {
        for (std::size_t shift = 0; shift < character.size(); ++shift)
        {
            const std::string start(shift, 'x');
            const std::size_t whole = (longestText - shift) / character.size();
            const TraceCapture trace;
            LDebugTrace((start + Repeat(character, 8000)).c_str());
            ASSERT_EQ(trace.Texts().size(), 3u);
            EXPECT_EQ(trace.Texts()[2], start + Repeat(character, whole)) << character << shift;
        }
    }
}

TEST(Trace, TheSystemsTextForAnErrorCode)
{
    TraceCapture trace;
    for (const DWORD code : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_PIPE_BUSY})
    {
        WCHAR* allocated = nullptr;
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                           FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, code, 0x400, reinterpret_cast<WCHAR*>(&allocated), 0, nullptr);
        ASSERT_NE(allocated, nullptr);
        const std::string expected = "F: " + Utf8(allocated);
        LocalFree(allocated);
        EXPECT_TRUE(expected.ends_with("\r\n"));
        trace.Restart();
        LDebugTraceSystemError("F: ", code);
        EXPECT_THAT(trace.Texts(), ElementsAre(expected));
    }
    trace.Restart();
    LDebugTraceSystemError("F: ", 0x2FFFFFFF);
    EXPECT_THAT(trace.Texts(), IsEmpty());
}
} // namespace
