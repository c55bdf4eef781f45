// The leak report: which blocks it lists, in what order and words, and which trace line it finds for each.

#include <algorithm>

#include <gmock/gmock.h>

#include "gen/debug.h"
#include "gen/debug/tracefile.h"
#include "tests/gen/debug/debuggeroutput.h"
#include "tests/gen/debug/heapprobe.h"
#include "tests/gen/debug/tracereader.h"
#include "tests/support/text.h"

using namespace sndxtest;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using testing::UnorderedElementsAre;

namespace
{
// A new trace: the line counter and the file begin at 0.
class LeakReport : public TrackerTest
{
  protected:
    LeakReport() { LDebugRotateFiles(LDebugGetFilePath()); }

    // The line of the file with that index among the stamped ones, as the report shows it.
    static std::string Shown(std::size_t index)
    {
        const auto lines = StampedLines(ReadWholeFile(TraceFilePath()));
        return index < lines.size() ? " [" + lines[index] + "]" : std::string(" [no such line]");
    }

    static std::string Leak(std::size_t size, std::size_t traceLine, const char* function = "Maker")
    {
        return LeakLine(size, function, blockFile, 7, traceLine);
    }
};
} // namespace

TEST_F(LeakReport, NoBlocksOrOnlyEmptyOnesAreNoLeak)
{
    EXPECT_EQ(Report(), noLeak);
    void* const empty = MakeBlock(0);
    void* const excused = MakeBlock(100);
    LMemAllocation::IgnoreLeak(excused);
    ReleaseBlock(MakeBlock(50));
    EXPECT_EQ(Report(), noLeak);
    ReleaseBlock(empty);
    ReleaseBlock(excused);
    EXPECT_EQ(Report(), noLeak);
}

TEST_F(LeakReport, ListsTheLargestFirstWithTheLineWrittenAfterEach)
{
    LDebugTrace("first line");
    void* const a = MakeBlock(100, false, "Small");
    LDebugTrace("after the small block\r\nand its second part");
    void* const large = MakeBlock(70000, true, "Class::Large");
    void* const excused = MakeBlock(80000);
    LMemAllocation::IgnoreLeak(excused);
    void* const beside = MakeBlock(500, false, "Beside"); // at the same line of the trace
    void* const released = MakeBlock(90000);
    LDebugTraceError("after the large one");
    ReleaseBlock(released);
    void* const empty = MakeBlock(0, false, "Empty");
    LDebugTrace("after the empty one\nit goes on\rand on\r\n\r\n12:00 is no stamp, ab:cd:ef.");
    void* const last = MakeBlock(300, false, "Last");

    const auto lines = Report();
    // Four lines stood there when the report began; its own first line follows the last block.
    EXPECT_THAT(lines,
                ElementsAre(LeakStart(70000 + 500 + 300 + 100), Leak(70000, 2, "Class::Large") + Shown(2),
                            Leak(500, 2, "Beside") + Shown(2), Leak(300, 4, "Last") + Shown(4),
                            Leak(100, 1, "Small") + Shown(1), Leak(0, 3, "Empty") + Shown(3), leakEnd));
    EXPECT_THAT(Shown(1), EndsWith("  after the small block]"));
    EXPECT_THAT(Shown(2), EndsWith("**after the large one]"));
    EXPECT_THAT(Shown(3), EndsWith("  after the empty one]"));
    EXPECT_THAT(Shown(4), EndsWith("**" + LeakStart(70900).substr(2) + "]"));

    ReleaseBlock(large, true);
    for (void* block : {a, excused, beside, empty, last})
    {
        ReleaseBlock(block);
    }
    EXPECT_EQ(Report(), noLeak);
}

TEST_F(LeakReport, TextThatLooksLikeAStampCountsAsALine)
{
    LDebugTrace("text\r\n12:34:56.789 no line of its own\nab:cd:ef. the form alone decides\n12:34:56.");
    void* const block = MakeBlock(1);
    LDebugTrace("after the block");
    EXPECT_THAT(Report(),
                ElementsAre(LeakStart(1), Leak(1, 1) + " [12:34:56.789 no line of its own]", leakEnd));
    ReleaseBlock(block);
}

TEST_F(LeakReport, BlocksOfOneLineShareItsTextAndAllOfManyAreListed)
{
    constexpr std::size_t count = 650; // several table blocks
    std::vector<void*> blocks;
    std::vector<std::string> expected;
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::size_t size = 1 + (i * 7919) % 331; // many sizes occur twice
        blocks.push_back(MakeBlock(size));
        total += size;
        expected.push_back(Leak(size, i / 5));
        if (i % 5 == 4)
        {
            LDebugTrace("line ", static_cast<std::int64_t>(i));
        }
    }
    auto lines = Report();
    for (std::size_t i = 0; i < count; ++i)
    {
        expected[i] += Shown(i / 5);
        ReleaseBlock(blocks[i]);
    }
    ASSERT_THAT(lines, SizeIs(count + 2));
    EXPECT_EQ(lines.front(), LeakStart(total));
    EXPECT_EQ(lines.back(), leakEnd);
    lines.erase(lines.begin());
    lines.pop_back();
    EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end(),
                               [](const std::string& a, const std::string& b)
                               { return std::stoul(a.substr(3)) > std::stoul(b.substr(3)); }));
    EXPECT_THAT(lines, testing::UnorderedElementsAreArray(expected));
}

TEST_F(LeakReport, SizesShowTheirLow32BitsAsASignedNumber)
{
    if (addressSanitizer || threadSanitizer)
    {
        GTEST_SKIP() << "blocks of gigabytes are too much for a sanitizer";
    }
    constexpr std::size_t low = std::size_t{1} << 32;
    void* const wrapped = MakeBlock(low + 5);
    void* const signBit = MakeBlock(std::size_t{1} << 31);
    if (wrapped == nullptr || signBit == nullptr)
    {
        ReleaseBlock(wrapped);
        ReleaseBlock(signBit);
        GTEST_SKIP() << "no gigabytes to be had";
    }
    void* const small = MakeBlock(6);
    const auto lines = Report();
    ASSERT_THAT(lines, SizeIs(5));
    EXPECT_EQ(lines[0], LeakStart(low + 5 + low / 2 + 6));
    const std::vector<std::string> sizes = {lines[1].substr(0, lines[1].find(" B")),
                                            lines[2].substr(0, lines[2].find(" B")),
                                            lines[3].substr(0, lines[3].find(" B"))};
    EXPECT_THAT(sizes, UnorderedElementsAre("** -2147483648", "** 6", "** 5"));
    EXPECT_LT(std::find(sizes.begin(), sizes.end(), "** 6"), std::find(sizes.begin(), sizes.end(), "** 5"));
    for (void* block : {wrapped, signBit, small})
    {
        ReleaseBlock(block);
    }
}

TEST_F(LeakReport, LongLinesAreCutAt511Characters)
{
    void* const before = MakeBlock(2);
    LDebugTrace((std::string(600, 'x') + "end").c_str());
    void* const fits = MakeBlock(1);
    const std::string head = Leak(1, 1) + " [";
    // The stamp and the thread take 20 characters of the shown line, a bracket closes it.
    const std::size_t room = 511 + 2 - head.size() - 20 - 1;
    LDebugTrace(std::string(room, 'y').c_str());
    const auto lines = Report();
    EXPECT_THAT(lines, ElementsAre(LeakStart(3), (Leak(2, 0) + Shown(0)).substr(0, 513),
                                   Leak(1, 1) + Shown(1), leakEnd));
    EXPECT_EQ(lines[2].size(), 513u); // with the two characters that mark an error line here
    ReleaseBlock(before);
    ReleaseBlock(fits);
}

TEST_F(LeakReport, FileThatWasRotatedAwayGivesNoTexts)
{
    for (int i = 0; i < 5; ++i)
    {
        LDebugTrace("line");
    }
    void* const late = MakeBlock(20);
    LDebugTrace("after the block");
    RemoveTraceFiles(); // as another process of the same name does when it starts
    void* const later = MakeBlock(10);
    EXPECT_THAT(Report(), ElementsAre(LeakStart(30), Leak(20, 5), Leak(10, 6), leakEnd));
    ReleaseBlock(late);
    ReleaseBlock(later);
}

TEST_F(LeakReport, WhateverStampedLinesTheFileHoldsAreCounted)
{
    void* const first = MakeBlock(30);
    LDebugTrace("own line");
    void* const second = MakeBlock(20);
    LDebugTrace("own line");
    void* const third = MakeBlock(10);
    // Line ends of every kind, a line beyond the reader's buffer, a block of the file that ends inside CR LF.
    const std::string foreign = "\r\nno stamp\n\r10:00:00.000 one\r10:00:00.001" + std::string(9000, 'z') +
                                "\n\n10:00:00.002 " + std::string(7000, 'q') + "\r\n";
    std::string content = foreign;
    content.insert(0, std::string(2 * 8192 + 1 - foreign.size(), '-'));
    WriteWholeFile(TraceFilePath(), content);
    const auto lines = Report();
    const auto shown = [&](std::size_t size, std::size_t index)
    { return (Leak(size, index) + Shown(index)).substr(0, 513); };
    EXPECT_THAT(Shown(1), HasSubstr("10:00:00.001zz"));
    const std::string texts = ReadWholeFile(TraceFilePath());
    EXPECT_THAT(texts, HasSubstr(shown(30, 0).substr(2) + "\r\n"));
    EXPECT_THAT(texts, HasSubstr(shown(20, 1).substr(2) + "\r\n"));
    EXPECT_THAT(texts, HasSubstr(shown(10, 2).substr(2) + "\r\n"));
    for (void* block : {first, second, third})
    {
        ReleaseBlock(block);
    }
}

TEST_F(LeakReport, WithoutTheFileAllAreListedAllTheSame)
{
    void* const block = MakeBlock(20);
    void* const other = MakeBlock(30);
    LDebugTrace("after the blocks");
    // A folder of the file's name can be neither read nor written; the lines still reach the debugger.
    const auto path = Wide(TraceFilePath());
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    const DebuggerOutput output;
    LDebugHeapLeakReport();
    EXPECT_THAT(Texts(ParseTrace(output.Take())),
                ElementsAre(LeakStart(50), Leak(30, 0), Leak(20, 0), leakEnd));
    EXPECT_TRUE(RemoveDirectoryW(path.c_str()));
    ReleaseBlock(block);
    ReleaseBlock(other);
}
