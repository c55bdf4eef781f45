// The stand-in for the main program as a process of its own, at the other end of a real pipe. What it does to
// a sender that it keeps waiting or leaves early is seen in the tests of the module's requests.

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/temporaryfolder.h"
#include "tests/support/child.h"
#include "tests/support/tracefile.h"
#include "tests/tools/requestbytes.h"

using namespace sndxtest;

namespace
{
class MainProgram : public testing::Test
{
  protected:
    ChildProcess Start(std::vector<std::string> arguments) const
    {
        const std::vector<std::string> common = {"--pipe",     name_,          "--output", folder_ / "output",
                                                 "--duration", "20000",        "--ready",  folder_ / "ready",
                                                 "--raw",      folder_ / "raw"};
        arguments.insert(arguments.begin(), common.begin(), common.end());
        return ChildProcess::Program(SNDX_MAINPROGRAM, arguments);
    }
    bool IsReady() const { return std::filesystem::exists(folder_.Local("ready")); }

    const std::string name_ = "SendoraToolsTest" + std::to_string(GetCurrentProcessId());
    const TemporaryFolder folder_;
};
} // namespace

TEST_F(MainProgram, ShowsARequestAndKeepsItsBytes)
{
    ChildProcess program = Start({"--requests", "1"});
    ASSERT_TRUE(Within(20000, [this] { return IsReady(); }));
    const std::string first = MessageBytes("-upload", "C:\\Sync\\a b.txt", "C:\\Sync\\\u00F6.txt");
    const std::string second = MessageBytes("-deleteconfirmed", "D:\\line\nbreak");
    Handle client(OpenFile("\\\\.\\pipe\\" + name_, GENERIC_READ | GENERIC_WRITE, 0));
    // Header and payload come as two writes.
    for (const std::string& part : {first.substr(0, 16), first.substr(16), second})
    {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(client, part.data(), static_cast<DWORD>(part.size()), &written, nullptr));
        EXPECT_TRUE(FlushFileBuffers(client)); // until it is read; the program ends after 20 seconds
    }
    client.Close();
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(ReadWholeFile(folder_ / "output"),
              "connection 1: opened\n"
              "message 1: marker 0x1234, format 3, code 0x0100000B, payload 1564 bytes, reserved 0\n"
              "  slots 3\n"
              "  option \"-upload\"\n"
              "  path 1 \"C:\\Sync\\a b.txt\"\n"
              "  path 2 \"C:\\Sync\\\u00F6.txt\"\n"
              "message 2: marker 0x1234, format 3, code 0x0100000B, payload 1044 bytes, reserved 0\n"
              "  slots 2\n"
              "  option \"-deleteconfirmed\"\n"
              "  path 1 \"D:\\line<U+000A>break\"\n"
              "connection 1: closed by the sender, bytes 2640, messages 2, faults 0\n");
    EXPECT_TRUE(ReadWholeFile(folder_ / "raw") == first + second);
}

TEST_F(MainProgram, ExitCodesTellUsageFromFailure)
{
    EXPECT_EQ(Start({"--exit-at-once"}).Wait(), 0);
    EXPECT_FALSE(IsReady());
    const std::vector<std::string> wrong[] = {{"--bogus"},
                                              {"file"},
                                              {"--buffer"},
                                              {"--instances", "0"},
                                              {"--instances", "255"},
                                              {"--close-early", "-1"},
                                              {"--buffer", "99999999999999999999"}};
    for (const auto& arguments : wrong)
    {
        EXPECT_EQ(Start(arguments).Wait(), 2) << arguments.front();
    }
    EXPECT_EQ(Start({"--no-pipe", "--output", folder_ / "missing\\file"}).Wait(), 1);
    const ChildProcess first = Start({});
    EXPECT_TRUE(Within(20000, [this] { return IsReady(); }));
    ChildProcess second = ChildProcess::Program(SNDX_MAINPROGRAM, {"--pipe", name_, "--duration", "20000"});
    EXPECT_EQ(second.Wait(), 1); // the pipe belongs to the first one
}
