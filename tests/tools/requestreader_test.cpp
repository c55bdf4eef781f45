#include <gtest/gtest.h>

#include "tests/tools/requestbytes.h"
#include "tools/mainprogram/requestreader.h"

using namespace sndxtest;
using sndxtools::RequestReader;

namespace
{
std::string Read(RequestReader& reader, const std::string& bytes, std::size_t piece = 100)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += piece)
    {
        const std::string part = bytes.substr(at, piece);
        text += reader.Feed(reinterpret_cast<const unsigned char*>(part.data()), part.size());
    }
    return text + reader.End();
}
} // namespace

TEST(RequestReader, TakesTheLargestMessageAndSaysWhatIsWrongWithOthers)
{
    const std::string good = PayloadBytes("-upload", "C:\\a");
    const std::string unterminated = Number(2, 4) + SlotBytes("-upload") + std::string(520, 'x');
    const std::string longest(259, 'x');
    std::string largest = Number(128, 4) + SlotBytes("-deleteconfirmed");
    for (int i = 1; i < 128; ++i)
    {
        largest += SlotBytes(longest);
    }
    const struct
    {
        std::string bytes;
        std::string shown;
        std::size_t faults;
    } cases[] = {
        {HeaderBytes(1044, 0x1235) + good, "the marker is not 0x1234", 1},
        {HeaderBytes(1044, 0x1234, 4) + good, "the format is not 3", 1},
        {HeaderBytes(1044, 0x1234, 3, 0x0100000C) + good, "the code is not 0x0100000B", 1},
        {HeaderBytes(1044, 0x1234, 3, 0x0100000B, 1) + good, "the reserved field is not 0", 1},
        {HeaderBytes(1043) + good.substr(0, 1043), "the payload size is not 4 + 520 x slots", 2},
        {HeaderBytes(0), "the payload size is not 4 + 520 x slots", 1},
        {HeaderBytes(0xFFFFFFFF) + good, "the payload is larger than 66564 bytes", 2},
        {HeaderBytes(4 + 520 * 129), "the payload is larger than 66564 bytes", 1},
        {HeaderBytes(4) + Number(0, 4), "the slot count is not between 2 and 128", 1},
        {HeaderBytes(524) + PayloadBytes("-upload"), "the slot count is not between 2 and 128", 1},
        {HeaderBytes(1044) + Number(3, 4) + good.substr(4), "the payload has room for 2 slots", 1},
        {HeaderBytes(1044) + Number(0xFFFFFFFF, 4) + good.substr(4), "the payload has room for 2 slots", 2},
        {HeaderBytes(1044) + unterminated, "the text of slot 1 is not terminated", 1},
        {MessageBytes("-delete", "C:\\a"), "unknown option word", 1},
        {HeaderBytes(1044).substr(0, 15), "the connection ended after 15 of 16 header bytes", 1},
        {HeaderBytes(1044) + good.substr(0, 1043), "the connection ended after 1043 of 1044 payload bytes",
         1},
        {HeaderBytes(66564) + largest, "  path 127 \"" + longest + "\"\n", 0},
    };
    for (const auto& each : cases)
    {
        RequestReader reader;
        EXPECT_PRED_FORMAT2(testing::IsSubstring, each.shown, Read(reader, each.bytes));
        EXPECT_EQ(reader.Faults(), each.faults) << each.shown;
    }
}

TEST(RequestReader, TextDoesNotDependOnHowTheStreamIsCut)
{
    // Well-formed, misfit, empty and unfinished messages behind one another.
    const std::string stream = MessageBytes("-upload", "C:\\a") + HeaderBytes(0) + HeaderBytes(3) + "abc" +
                               HeaderBytes(524) + PayloadBytes("-upload") +
                               MessageBytes("-download", "C:\\b", "C:\\c") + HeaderBytes(1044).substr(0, 9);
    RequestReader whole;
    const std::string expected = Read(whole, stream, stream.size());
    EXPECT_EQ(whole.Messages(), 5u);
    EXPECT_EQ(whole.Bytes(), stream.size());
    for (const std::size_t piece : {1, 7, 16, 519, 521, 4096})
    {
        RequestReader cut;
        EXPECT_EQ(Read(cut, stream, piece), expected) << piece;
    }
}
