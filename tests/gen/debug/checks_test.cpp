// Assertion reports and run-time checks.

#include <cstring>
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
using Lines = std::vector<std::string>;

std::string Address(const void* p)
{
    const char digits[] = "0123456789ABCDEF";
    std::string result;
    for (int shift = 60; shift >= 0; shift -= 4)
    {
        result += digits[reinterpret_cast<std::uintptr_t>(p) >> shift & 15];
    }
    return result;
}

TEST(AssertionReport, NamesFunctionExpressionAndPlaceOnTwoPhysicalLines)
{
    const TraceCapture trace;
    LDebugAssertFailed("F<class X>::operator ->", "p != nullptr", "gen/list.h", 123);
    LDebugAssertFailed("F", "100%s", "gen/f.cpp", -1);
    EXPECT_THAT(trace.Texts(), ElementsAre("**F<class X>::operator -> ASSERTION FAILED p != nullptr:\r\n"
                                           "   gen/list.h(123)",
                                           "**F ASSERTION FAILED 100%s:\r\n   gen/f.cpp(-1)"));
}

TEST(AssertionReport, OfMoreThan8191CharactersIsCutAndReported)
{
    const TraceCapture trace;
    const std::string expression(9000, 'e');
    LDebugAssertFailed("F", expression.c_str(), "gen/f.cpp", 1);
    const Lines texts = trace.Texts();
    ASSERT_EQ(texts.size(), 5u);
    const std::string report = "F ASSERTION FAILED " + expression;
    EXPECT_EQ(Lines(texts.begin(), texts.begin() + 2), Overflow("lc", report.substr(0, 259)));
    EXPECT_EQ(texts[4], "**" + report.substr(0, 8191 - 22)) << "cut again by the line, which has a stamp";
}

TEST(CheckReport, NamesExpressionMessageAndPlace)
{
    const TraceCapture trace;
    LDebugCheckFailed("u == 0", "F  100%s wrong.", "gen/f.cpp", 7);
    EXPECT_THAT(trace.Texts(),
                ElementsAre("**ASSERTION FAILED (u == 0) \"F  100%s wrong.\" file: gen/f.cpp line: 7"));
}

TEST(CheckReport, IsCutAndReportedInEitherOfItsSteps)
{
    // Expression and message: 259 characters, with the parentheses, the blank and the quotes.
    TraceCapture trace;
    const std::string fits(259 - 8, 'm');
    LDebugCheckFailed("e e", fits.c_str(), "f", 1);
    EXPECT_THAT(trace.Texts(), ElementsAre("**ASSERTION FAILED (e e) \"" + fits + "\" file: f line: 1"));
    trace.Restart();
    LDebugCheckFailed("e e", (fits + "m").c_str(), "f", 1);
    const std::string cut = "(e e) \"" + fits + "m";
    EXPECT_EQ(trace.Texts(), Join(Overflow("lc", cut), "**ASSERTION FAILED " + cut + " file: f line: 1"));
    // The whole report: 359 characters.
    trace.Restart();
    const std::string file(400, 'f');
    LDebugCheckFailed("e", "m", file.c_str(), 1);
    const std::string whole = "ASSERTION FAILED (e) \"m\" file: " + file;
    EXPECT_EQ(trace.Texts(), Join(Overflow("lc", whole.substr(0, 259)), "**" + whole.substr(0, 359)));
}

TEST(Checks, NullPointersAreReportedAndNothingElse)
{
    TraceCapture trace;
    LDEBUGVALIDPTRREAD(nullptr);
    LDEBUGVALIDPTRWRITE(nullptr);
    EXPECT_THAT(trace.Texts(), ElementsAre("**LDEBUGVALIDPTRREAD attempting to read from a null ptr",
                                           "**LDEBUGVALIDPTRWRITE attempting to read from a null ptr"));
    trace.Restart();
    const void* const dangling = reinterpret_cast<const void*>(1);
    LDEBUGVALIDPTRREAD(dangling);
    LDEBUGVALIDPTRWRITE(dangling);
    LDEBUGMUSTBEHEAPPTR(nullptr);
    LDEBUGMUSTBEHEAPPTR(&trace);
    LDEBUGMUSTBESHORTSTR(nullptr);
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Checks, AStringAtAnOddAddressIsReportedWithItsText)
{
    TraceCapture trace;
    alignas(WCHAR) char memory[32] = {};
    const WideString text = Wide("Acc\u00F6unt");
    std::memcpy(memory + 1, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    LDEBUGVALIDWIN32STRINGF(reinterpret_cast<const WCHAR*>(memory + 1));
    EXPECT_THAT(trace.Texts(),
                ElementsAre("**LDEBUGVALIDWIN32STRINGF The string Acc\u00F6unt is not word-aligned "
                            "(address: " +
                            Address(memory + 1) +
                            "). This might result in failure of some WinAPI functions."));
    trace.Restart();
    LDEBUGVALIDWIN32STRINGF(text.c_str());
    LDEBUGVALIDWIN32STRINGF(nullptr);
    LDEBUGVALIDWIN32STRINGF(reinterpret_cast<const WCHAR*>(2)); // the text is not looked at
    EXPECT_THAT(trace.Texts(), IsEmpty());
}

TEST(Checks, MemoryThatIsNotExactlyReadWriteIsReported)
{
    const auto expectReport = [](const void* p, bool report)
    {
        const TraceCapture trace;
        LCHECKMEMORYWRITEABLE(const_cast<void*>(p));
        const Lines reports = {"**LCHECKMEMORYWRITEABLE Memory is not marked as writeable!!!",
                               "**LCHECKMEMORYWRITEABLE 0x" + Address(p)};
        EXPECT_EQ(trace.Texts(), report ? reports : Lines()) << p;
    };
    char onStack[8];
    const std::vector<char> onHeap(8);
    expectReport(onStack + 3, false);
    expectReport(onHeap.data(), false);
    expectReport("literal", true);
    expectReport(nullptr, true);
    expectReport(reinterpret_cast<const void*>(&LDebugCheckMemoryWriteable), true); // code
    expectReport(reinterpret_cast<const void*>(0xFFFF800000000000u), true);         // no address of a process

    struct Case
    {
        DWORD protection;
        bool report;
    };
    for (const Case& c : {Case{PAGE_READWRITE, false},
                          {PAGE_READONLY, true},
                          {PAGE_EXECUTE_READWRITE, true},
                          {PAGE_NOACCESS, true},
#ifdef _WIN32 // pages of which the native layer has no notion
                          {PAGE_READWRITE | PAGE_GUARD, true},
                          {PAGE_READWRITE | PAGE_NOCACHE, true}
#endif
         })
    {
        void* page = VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, c.protection);
        ASSERT_NE(page, nullptr) << c.protection;
        expectReport(static_cast<char*>(page) + 100, c.report);
        VirtualFree(page, 0, MEM_RELEASE);
        expectReport(page, true);
    }
    void* reserved = VirtualAlloc(nullptr, 4096, MEM_RESERVE, PAGE_READWRITE);
    expectReport(reserved, true);
    VirtualFree(reserved, 0, MEM_RELEASE);
}
} // namespace
