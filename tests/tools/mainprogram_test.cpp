// The stand-in for the main program as a process of its own, at the other end of a real pipe. What it does to
// a sender that it keeps waiting or leaves early is seen in the tests of the module's requests.

#include <memory>

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
    std::string File(const char* name) const { return folder_ / name; }
    bool Exists(const char* name) const
    {
        return GetFileAttributesW(Wide(File(name)).c_str()) != INVALID_FILE_ATTRIBUTES;
    }

    ChildProcess& Start(std::vector<std::string> arguments)
    {
        const std::vector<std::string> common = {"--pipe",     name_,      "--output", File("output"),
                                                 "--duration", "20000",    "--ready",  File("ready"),
                                                 "--raw",      File("raw")};
        arguments.insert(arguments.begin(), common.begin(), common.end());
        program_ = std::make_unique<ChildProcess>(ChildProcess::Program(SNDX_MAINPROGRAM, arguments));
        return *program_;
    }
    ChildProcess& StartAndWait(const std::vector<std::string>& arguments)
    {
        ChildProcess& program = Start(arguments);
        for (int tries = 0; tries < 2000 && !Exists("ready"); ++tries)
        {
            Sleep(5);
        }
        return program;
    }

    HANDLE Open() const
    {
        return CreateFileW(Wide("\\\\.\\pipe\\" + name_).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                           OPEN_EXISTING, 0, nullptr);
    }
    // Blocks until the bytes are read; the program ends after 20 seconds.
    static void Send(HANDLE pipe, const std::string& bytes)
    {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
        EXPECT_TRUE(FlushFileBuffers(pipe));
    }

    const std::string name_ = "SendoraToolsTest" + std::to_string(GetCurrentProcessId());

  private:
    const TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> program_;
};
} // namespace

TEST_F(MainProgram, ShowsARequestAndKeepsItsBytes)
{
    ChildProcess& program = StartAndWait({"--requests", "1"});
    const std::string first = MessageBytes("-upload", "C:\\Sync\\a b.txt", "C:\\Sync\\\u00F6.txt");
    const std::string second = MessageBytes("-deleteconfirmed", "D:\\line\nbreak");
    Handle client(Open());
    // Header and payload come as two writes.
    for (const std::string& part : {first.substr(0, 16), first.substr(16), second})
    {
        Send(client, part);
    }
    client.Close();
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_EQ(ReadWholeFile(File("output")),
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
    EXPECT_TRUE(ReadWholeFile(File("raw")) == first + second);
}

TEST_F(MainProgram, ExitCodesTellUsageFromFailure)
{
    EXPECT_EQ(Start({"--exit-at-once"}).Wait(), 0);
    EXPECT_FALSE(Exists("ready"));
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
    EXPECT_EQ(Start({"--no-pipe", "--output", File("missing\\file")}).Wait(), 1);
    StartAndWait({});
    ChildProcess second = ChildProcess::Program(SNDX_MAINPROGRAM, {"--pipe", name_, "--duration", "20000"});
    EXPECT_EQ(second.Wait(), 1); // the pipe belongs to the first one
}
