// Assertion reports and run-time checks.

#include <cstring>

#include "gen/debug.h"
#include "tests/support/reports.h"
#include "tests/support/traceoracle.h"

namespace
{
using namespace sndxtest;
using Reports = ForeignLinesTest;

TEST_F(Reports, NameExpressionAndPlaceAndAreCut)
{
    TraceCapture trace;
    LDebugAssertFailed("F<class X>::operator ->", "p != 100%s", "gen/list.h", 123);
    EXPECT_EQ(trace.Texts(), Lines{"**F<class X>::operator -> ASSERTION FAILED p != 100%s:\r\n"
                                   "   gen/list.h(123)"});
    trace.Restart();
    const std::string expression(9000, 'e');
    LDebugAssertFailed("F", expression.c_str(), "gen/f.cpp", 1);
    const Lines texts = trace.Texts();
    ASSERT_EQ(texts.size(), 5u);
    const std::string report = "F ASSERTION FAILED " + expression;
    EXPECT_EQ(Lines(texts.begin(), texts.begin() + 2), Overflow("lc", report));
    EXPECT_EQ(texts[4], "**" + report.substr(0, 8191 - 22)) << "cut again by the line, which has a stamp";
}

TEST_F(Reports, ChecksAreCutInEitherOfTheirSteps)
{
    const auto report = [](const std::string& message, const std::string& file)
    { return Traced([&] { LDebugCheckFailed("e e", message.c_str(), file.c_str(), 7); }); };
    // Expression and message: 259 characters, with the parentheses, the blank and the quotes.
    const std::string fits = "100%s" + std::string(259 - 8 - 5, 'm');
    EXPECT_EQ(report(fits, "f"), Lines{FailedCheck("e e", fits, "f")});
    const std::string cut = "(e e) \"" + fits + "m";
    EXPECT_EQ(report(fits + "m", "f"),
              Overflow("lc", cut) + Lines{"**ASSERTION FAILED " + cut + " file: f line: #"});
    // The whole report: 359 characters.
    const std::string whole = "ASSERTION FAILED (e e) \"m\" file: " + std::string(400, 'f');
    EXPECT_EQ(report("m", std::string(400, 'f')), Overflow("lc", whole) + Lines{"**" + whole.substr(0, 359)});
}

TEST(Checks, NullPointersAreReportedAndNothingElse)
{
    const TraceCapture trace;
    LDEBUGVALIDPTRREAD(nullptr);
    LDEBUGVALIDPTRWRITE(nullptr);
    LDEBUGVALIDPTRREAD(reinterpret_cast<const void*>(1));
    EXPECT_EQ(trace.Texts(), (Lines{nullRead, nullWrite}));
}

TEST(Checks, AStringAtAnOddAddressIsReportedWithItsText)
{
    alignas(WCHAR) char memory[32] = {};
    const WideString text = Wide("Acc\u00F6unt");
    std::memcpy(memory + 1, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    EXPECT_EQ(Traced([&] { LDEBUGVALIDWIN32STRINGF(reinterpret_cast<const WCHAR*>(memory + 1)); }),
              Lines{"**LDEBUGVALIDWIN32STRINGF The string Acc\u00F6unt is not word-aligned (address: " +
                    Address(memory + 1) + "). This might result in failure of some WinAPI functions."});
    const TraceCapture trace;
    LDEBUGVALIDWIN32STRINGF(text.c_str());
    LDEBUGVALIDWIN32STRINGF(nullptr);
    LDEBUGVALIDWIN32STRINGF(reinterpret_cast<const WCHAR*>(2)); // the text is not looked at
    EXPECT_EQ(trace.Texts(), Lines());
}

TEST(Checks, MemoryThatIsNotExactlyReadWriteIsReported)
{
    const auto reports = [](const void* p)
    { return Traced([p] { LCHECKMEMORYWRITEABLE(const_cast<void*>(p)); }); };
    const auto both = [](const void* p)
    {
        return Lines{"**LCHECKMEMORYWRITEABLE Memory is not marked as writeable!!!",
                     "**LCHECKMEMORYWRITEABLE 0x" + Address(p)};
    };
    const char onStack[8] = {};
    const std::string onHeap(100, 'x');
    EXPECT_EQ(reports(onStack + 3), Lines());
    EXPECT_EQ(reports(onHeap.data()), Lines());
    void* const noAddress = reinterpret_cast<void*>(0xFFFF800000000000u); // of a process
    for (const void* p :
         {static_cast<const void*>("literal"), static_cast<const void*>(nullptr),
          reinterpret_cast<const void*>(&LDebugCheckMemoryWriteable), static_cast<const void*>(noAddress)})
    {
        EXPECT_EQ(reports(p), both(p));
    }
    for (const DWORD protection : {PAGE_READWRITE, PAGE_READONLY, PAGE_EXECUTE_READWRITE, PAGE_NOACCESS,
#ifdef _WIN32 // pages of which the native layer has no notion
                                   PAGE_READWRITE | PAGE_GUARD, PAGE_READWRITE | PAGE_NOCACHE
#endif
         })
    {
        auto* const page =
            static_cast<char*>(VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, protection));
        EXPECT_EQ(reports(page + 100), protection == PAGE_READWRITE ? Lines() : both(page + 100))
            << protection;
        VirtualFree(page, 0, MEM_RELEASE);
    }
}
} // namespace
