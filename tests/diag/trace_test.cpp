// The family of trace operations: what each of them puts into a line.

#include <limits>

#include "gen/debug.h"
#include "tests/support/reports.h"
#include "tests/support/traceoracle.h"

namespace
{
using namespace sndxtest;
using Trace = ForeignLinesTest;

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

TEST_F(Trace, EveryFormOfALine)
{
    TraceCapture trace;
    LDebugWriteLineW(TEXT("L\u00F6schen"), false);
    LDebugWriteLineW(TEXT("\u20AC"), true);
    LDebugTrace("one\r\n   two\n");
    LDebugTraceError("100%s\r\n");
    EXPECT_EQ(trace.Texts(), (Lines{"L\u00F6schen", "**\u20AC", "one\r\n   two\n", "**100%s\r\n"}));
    trace.Restart();
    LDebugTrace("n=", "v");
    LDebugTraceError("n=", "v");
    LDebugTrace("w=", TEXT("\u00F6"));
    LDebugTraceError("w=", TEXT("\u00F6"));
    LDebugTrace("i=", std::numeric_limits<std::int64_t>::min());
    LDebugTraceError("i=", std::int64_t{4294967296});
    LDebugTraceValue("i=", std::numeric_limits<std::int32_t>::min(), true);
    LDebugTraceValue(TEXT("%s\u00E4="), TEXT("%d\u00F6"), true);
    LDebugTrace("n=", static_cast<const char*>(nullptr));
    LDebugTraceError("w=", static_cast<const WCHAR*>(nullptr));
    LDebugTraceValue(TEXT("W="), nullptr, false);
    LDebugWriteLine(nullptr, false);
    LDebugWriteLineW(nullptr, true);
    LDebugTraceFunction("F", true, static_cast<const char*>(nullptr));
    LDebugTraceFunction("F", false, static_cast<const WCHAR*>(nullptr));
    EXPECT_EQ(trace.Texts(), (Lines{"n=v", "**n=v", "w=\u00F6", "**w=\u00F6", "i=-9223372036854775808",
                                    "**i=4294967296", "**i=-2147483648", "**%s\u00E4=%d\u00F6",
                                    "n=!!! NULL !!!", "**w=!!! NULL !!!", "W=!!! NULL !!!", "!!! NULL !!!",
                                    "**!!! NULL !!!", "**F !!! NULL !!!", "F !!! NULL !!!"}));
    trace.Restart();
    LDebugTraceFunction("F", true, "100%s");
    LDebugTraceFunctionF("F", false, "%d of %s", 3, "n");
    LDebugTraceFunctionF("F<\u00F6>", true, TEXT("%s at %p"), TEXT("\u20AC"), reinterpret_cast<void*>(0xAB));
    LDebugTraceF("%s|%d|%Iu", "a", -1, std::size_t{5});
    LDebugTraceErrorF("0x%p", reinterpret_cast<void*>(0xAB));
    EXPECT_EQ(trace.Texts(), (Lines{"**F 100%s", "F 3 of n", "**F<\u00F6> \u20AC at 00000000000000AB",
                                    "a|-1|5", "**0x00000000000000AB"}));
}

TEST_F(Trace, FormsThatCutWithoutAReport)
{
    const TraceCapture trace;
    // A wide value behind a narrow prefix: 259 bytes.
    const std::string prefix(300, 'p');
    LDebugTrace(prefix.c_str(), Wide(std::string(260, 'x')).c_str());
    LDebugTrace("", Wide(Repeat("\u00F6", 200)).c_str());
    // The function of a wide function line: 259.
    LDebugTraceFunctionF(std::string(300, 'f').c_str(), false, TEXT("x"));
    LDebugTraceFunction(std::string(300, 'f').c_str(), false, "x");
    // Formatted lines: 511.
    for (const std::size_t length : {511, 512, 513, 9000})
    {
        LDebugTraceF("%s", std::string(length, 'x').c_str());
        LDebugTraceErrorF("%s", std::string(length, 'x').c_str());
    }
    // At the end of a character; and a conversion that fails in the runtime shows nothing of the line before.
    LDebugTraceF("%s\U0001F600", std::string(509, 'x').c_str());
    LDebugTraceF("ab%ls", Wide("\u20AC").c_str());
    const Lines formatted = {std::string(511, 'x'), "**" + std::string(511, 'x')};
    EXPECT_EQ(trace.Texts(),
              (Lines{prefix + std::string(259, 'x'), Repeat("\u00F6", 129), std::string(259, 'f') + " x",
                     std::string(300, 'f') + " x"} +
               formatted + formatted + formatted + formatted + Lines{std::string(509, 'x'), "ab"}));
}

// The report of a line that was cut shows it with its stamp, which is left out here.
template <class Function>
Lines TracedWithoutStamps(Function function)
{
    Lines texts = Traced(function);
    const std::string shown = Overflow("lc", "")[1];
    for (std::string& text : texts)
    {
        const bool stamped =
            text.size() > shown.size() + 20 && text.starts_with(shown) && text[shown.size() + 2] == ':';
        text.erase(shown.size(), stamped ? 20 : 0);
    }
    return texts;
}

TEST_F(Trace, ALineOfMoreThan8191BytesIsCutAndReportedBefore)
{
    const std::string fits(longestText, 'x');
    const std::string value(9000, 'x');
    const WideString wide = Wide(value);
    const auto cut = [&](const std::string& line) {
        return Lines{Overflow("lc", "")[0], Overflow("lc", line.substr(0, 239))[1], line};
    };
    EXPECT_EQ(Traced([&] { LDebugTrace(fits.c_str()); }), Lines{fits});
    EXPECT_EQ(TracedWithoutStamps([&] { LDebugTrace((fits + "x").c_str()); }), cut(fits));
    EXPECT_EQ(TracedWithoutStamps([&] { LDebugWriteLineW(wide.c_str(), false); }), cut(fits));
    // A value is reported by its formatter first; the narrow one of function lines reports nothing.
    const std::string functionLine = "F " + fits.substr(2);
    EXPECT_EQ(TracedWithoutStamps([&] { LDebugTraceFunction("F", false, value.c_str()); }),
              cut(functionLine));
    EXPECT_EQ(TracedWithoutStamps([&] { LDebugTraceFunctionF("F", false, TEXT("%s"), wide.c_str()); }),
              Overflow("lw", value) + cut(functionLine));
    EXPECT_EQ(TracedWithoutStamps([&] { LDebugTraceValue("", value.c_str(), false); }),
              Overflow("lc", value) + cut(fits));
    EXPECT_EQ(TracedWithoutStamps([&] { LDebugTraceValue(TEXT(""), wide.c_str(), false); }),
              Overflow("lw", value) + cut(fits));
    // Around the size of the buffer that each form has for itself; the lines are the same then.
    Lines around = Traced(
        []
        {
            for (std::size_t length = 8189; length < 8194; ++length)
            {
                const std::string text(length, 'x');
                LDebugTraceFunction("F", true, text.c_str());
                LDebugTraceFunction("F", true, Wide(text).c_str());
                LDebugTraceValue("", text.c_str(), true);
                LDebugTraceValue(TEXT(""), Wide(text).c_str(), true);
                LDebugWriteLineW(Wide(text).c_str(), true);
            }
        });
    std::erase_if(around, [](const std::string& line) { return line.find('x') > 4; }); // reports
    Lines expected;
    for (int i = 0; i < 5; ++i)
    {
        expected = expected + Lines(2, "**" + functionLine) + Lines(3, "**" + fits);
    }
    EXPECT_EQ(around, expected);
    // The cut is at the end of a character.
    for (const std::string start : {"", "x", "xx", "xxx"})
    {
        const std::string character = "\U0001F600";
        const std::size_t whole = (longestText - start.size()) / character.size();
        const Lines texts = Traced([&] { LDebugTrace((start + Repeat(character, 3000)).c_str()); });
        EXPECT_EQ(texts.back(), start + Repeat(character, whole)) << start;
    }
}

TEST_F(Trace, TheSystemsTextForAnErrorCode)
{
    const std::string expected = "F: " + SystemText(ERROR_PIPE_BUSY);
    EXPECT_TRUE(expected.ends_with("\r\n"));
    EXPECT_EQ(Traced([] { LDebugTraceSystemError("F: ", ERROR_PIPE_BUSY); }), Lines{expected});
    EXPECT_EQ(Traced([] { LDebugTraceSystemError("F: ", 0x2FFFFFFF); }), Lines());
}
} // namespace
