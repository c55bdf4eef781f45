// The leak report on a trace file of any content: every block is listed, in its order and with the line that
// stands at its place, and what was in the file stays there.

#include "diag/heap.h"
#include "diag/heapblocks.h"
#include "diag/tracefile.h"
#include "fuzz/fuzz.h"
#include "sndxposix.h"
#include "tests/support/leakreport.h"

using namespace sndxfuzz;

namespace
{
struct Block
{
    std::size_t size;
    std::uint32_t traceLine;
    void* user;
};

std::vector<Block> MakeBlocks(FuzzedDataProvider& input)
{
    std::vector<Block> blocks(input.ConsumeIntegralInRange<std::size_t>(1, 6));
    for (Block& block : blocks)
    {
        block.size = input.ConsumeIntegralInRange<std::size_t>(1, 3000);
        block.traceLine = input.ConsumeBool() ? input.ConsumeIntegralInRange<std::uint32_t>(0, 12)
                                              : input.ConsumeIntegral<std::uint32_t>();
        const LDebugHeapLock lock;
        block.user = LMemAllocation::Record(block.size, "file", "Maker", 7, false);
        LHeapBlockGetRecord(block.user, LMemoryMode::Plain)->uTraceLine = block.traceLine;
    }
    return blocks;
}

// Time stamp and thread of a line are 20 bytes, the line's end two.
Lines WithoutStamps(const std::string& output)
{
    Lines texts;
    for (std::size_t at = 0; at < output.size();)
    {
        const std::size_t end = output.find("\r\n", at);
        MUST(end != std::string::npos && end >= at + 20);
        texts.push_back("**" + output.substr(at + 20, end - at - 20));
        at = end + 2;
    }
    return texts;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    std::vector<Block> blocks = MakeBlocks(input);
    // Damaged lines among sound ones.
    std::string content;
    while (input.remaining_bytes() > 0)
    {
        content += input.ConsumeBool() ? "12:34:56.789  0001  " : "";
        content += input.ConsumeRandomLengthString(200);
        content += input.PickValueInArray({"\r\n", "\n", "\r", ""});
        content.append(input.ConsumeBool() ? input.ConsumeIntegralInRange<std::size_t>(7900, 8300) : 0, 'z');
    }
    const WCHAR* const path = LDebugGetFilePath();
    WriteFileOf(path, content);
    sndxposix::TakeDebugOutput();
    LDebugHeapLeakReport();
    const std::string output = sndxposix::TakeDebugOutput();
    const std::string after = ReadFileOf(path);
    MUST(after.starts_with(content) && after.substr(content.size()) == output);

    // The report finds its own first line, too.
    const std::string begun = content + output.substr(0, output.find("\r\n") + 2);
    Lines stamped = sndxtest::StampedLines(begun);
    std::size_t total = 0;
    Lines expected;
    for (const Block& block : blocks)
    {
        total += block.size;
        std::string line = sndxtest::LeakLine(block.size, "Maker", "file", 7, 0);
        line.replace(line.rfind(' ') + 1, 1, std::to_string(static_cast<std::int32_t>(block.traceLine)));
        if (block.traceLine < stamped.size())
        {
            const std::string shown = stamped[block.traceLine].substr(0, LTRACELINESIZE - 1);
            line += " [" + std::string(shown.c_str()) + "]";
        }
        expected.push_back(line);
        LDebugHeapRelease(block.user, false);
    }
    Lines reported = WithoutStamps(output);
    MUST(reported.size() >= 2 && reported.front() == sndxtest::LeakStart(total) &&
         reported.back() == sndxtest::leakEnd);
    reported = {reported.begin() + 1, reported.end() - 1};
    MUST(reported.size() == blocks.size());
    // Of equal sizes in any order; a line is cut at 511 bytes, in front of a character that does not fit.
    std::sort(blocks.begin(), blocks.end(), [](const Block& a, const Block& b) { return a.size > b.size; });
    for (std::size_t i = 0; i < blocks.size(); ++i)
    {
        const std::string head = "** " + std::to_string(blocks[i].size) + " Bytes";
        MUST(reported[i].starts_with(head));
        MUST(std::any_of(expected.begin(), expected.end(),
                         [&](const std::string& line)
                         {
                             return reported[i] == line || (line.size() > 513 && reported[i].size() >= 510 &&
                                                            line.starts_with(reported[i]));
                         }));
    }
    return 0;
}
