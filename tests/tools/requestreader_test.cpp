#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "tests/tools/requestbytes.h"
#include "tools/mainprogram/requestreader.h"

using namespace sndxtest;
using sndxtools::RequestReader;

namespace
{
std::string Read(RequestReader& reader, const std::string& bytes, std::size_t piece)
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
        EXPECT_EQ(cut.Faults(), whole.Faults()) << piece;
    }
}

TEST(RequestReader, TakesTheLargestMessageAndSkipsWhatCannotBeTrusted)
{
    std::string payload = Number(128, 4) + SlotBytes("-deleteconfirmed");
    const std::string longest(259, 'x');
    for (int i = 1; i < 128; ++i)
    {
        payload += SlotBytes(longest);
    }
    ASSERT_EQ(payload.size(), 66564u);
    RequestReader largest;
    const std::string text = Read(largest, HeaderBytes(66564) + payload, 8192);
    EXPECT_EQ(largest.Messages(), 1u);
    EXPECT_EQ(largest.Faults(), 0u) << text;
    EXPECT_NE(text.find("  path 127 \"" + longest + "\"\n"), std::string::npos);

    for (const std::string& header :
         {HeaderBytes(1044, 0x4321), HeaderBytes(66564 + 520), HeaderBytes(0xFFFFFFFF)})
    {
        RequestReader reader;
        const std::string skipped = Read(reader, header + MessageBytes("-upload", "C:\\a"), 100);
        EXPECT_EQ(reader.Messages(), 0u) << skipped;
        EXPECT_NE(skipped.find("skipped"), std::string::npos);
    }
}

TEST(RequestReader, SurvivesRandomPayloads)
{
    std::mt19937 random(7);
    const auto noise = [&random](std::size_t count)
    {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
        return bytes;
    };
    for (int round = 0; round < 300; ++round)
    {
        RequestReader reader;
        const auto size = static_cast<std::uint32_t>(random() % 3000);
        const std::string text = Read(
            reader, HeaderBytes(size) + noise(size) + MessageBytes("-upload", "C:\\a"), 1 + random() % 900);
        // Whatever the payload was, the next message is found again.
        EXPECT_EQ(reader.Messages(), 2u);
        EXPECT_GT(reader.Faults(), 0u);
        EXPECT_TRUE(text.ends_with("  option \"-upload\"\n  path 1 \"C:\\a\"\n")) << text;
    }
}
