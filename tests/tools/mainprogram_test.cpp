// The stand-in for the main program as a process of its own, at the other end of a real pipe.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/child.h"
#include "tests/tools/requestbytes.h"

using namespace sndxtest;
using testing::HasSubstr;

namespace
{
class PipeClient : public Handle
{
  public:
    explicit PipeClient(const std::string& name)
        : Handle(CreateFileW(Wide("\\\\.\\pipe\\" + name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                             OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)),
          error_(IsOpen() ? 0 : GetLastError())
    {
    }
    DWORD Error() const { return error_; } // of the open
    bool ServerIsThere() const { return PeekNamedPipe(*this, nullptr, 0, nullptr, nullptr, nullptr); }

    // False when the bytes are not taken within the time; what is left of them is withdrawn.
    bool Write(const std::string& bytes, DWORD milliseconds = 10000)
    {
        OVERLAPPED overlapped = {};
        overlapped.hEvent = event_;
        DWORD written = 0;
        if (!WriteFile(*this, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &overlapped) &&
            GetLastError() != ERROR_IO_PENDING)
        {
            return false;
        }
        if (WaitForSingleObject(event_, milliseconds) != WAIT_OBJECT_0)
        {
            CancelIo(*this);
        }
        return GetOverlappedResult(*this, &overlapped, &written, TRUE) && written == bytes.size();
    }

  private:
    DWORD error_;
    Handle event_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

class MainProgram : public testing::Test
{
  protected:
    MainProgram() { std::filesystem::create_directories(folder_); }
    ~MainProgram() override
    {
        program_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string File(const char* name) const { return (folder_ / name).string(); }
    const std::string& Pipe() const { return pipe_; }
    ChildProcess& Program() { return *program_; }

    void Start(std::vector<std::string> arguments)
    {
        const std::vector<std::string> common = {"--pipe",     pipe_,      "--output", File("output"),
                                                 "--duration", "20000",    "--ready",  File("ready"),
                                                 "--raw",      File("raw")};
        arguments.insert(arguments.begin(), common.begin(), common.end());
        program_ = std::make_unique<ChildProcess>(ChildProcess::Program(SNDX_MAINPROGRAM, arguments));
    }

    void StartAndWait(std::vector<std::string> arguments)
    {
        Start(std::move(arguments));
        ASSERT_TRUE(WaitUntil([this] { return std::filesystem::exists(File("ready")); }));
    }

    // One connection after another, each with all its bytes.
    void Send(const std::string& bytes)
    {
        std::unique_ptr<PipeClient> client;
        // The only instance may still be about to be reconnected.
        ASSERT_TRUE(WaitUntil(
            [&]
            {
                client = std::make_unique<PipeClient>(pipe_);
                return client->IsOpen();
            }))
            << client->Error();
        ASSERT_TRUE(client->Write(bytes));
        ASSERT_TRUE(FlushFileBuffers(*client));
    }

    std::string Content(const char* name) const
    {
        std::ostringstream content;
        content << std::ifstream(File(name), std::ios::binary).rdbuf();
        return content.str();
    }

    template <class Condition>
    static bool WaitUntil(Condition condition)
    {
        const Stopwatch time;
        while (!condition())
        {
            if (time.Milliseconds() > 10000)
            {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

  private:
    const std::string pipe_ = "SendoraToolsTest" + std::to_string(GetCurrentProcessId());
    const std::filesystem::path folder_ = std::filesystem::temp_directory_path() / pipe_;
    std::unique_ptr<ChildProcess> program_;
};
} // namespace

TEST_F(MainProgram, ShowsARequestAndKeepsItsBytes)
{
    StartAndWait({"--requests", "1"});
    const std::string first = MessageBytes("-upload", "C:\\Sync\\a b.txt", "C:\\Sync\\\u00F6.txt");
    const std::string second = MessageBytes("-deleteconfirmed", "D:\\line\nbreak");
    {
        PipeClient client(Pipe());
        ASSERT_TRUE(client.IsOpen()) << client.Error();
        // Header and payload come as two writes.
        ASSERT_TRUE(client.Write(first.substr(0, 16)));
        ASSERT_TRUE(client.Write(first.substr(16)));
        ASSERT_TRUE(client.Write(second));
        ASSERT_TRUE(FlushFileBuffers(client));
    }
    EXPECT_EQ(Program().Wait(), 0);
    EXPECT_EQ(Content("output"),
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
    EXPECT_TRUE(Content("raw") == first + second);
}

TEST_F(MainProgram, SaysWhatIsWrongWithMalformedRequestsAndGoesOn)
{
    const std::string good = PayloadBytes("-upload", "C:\\a");
    const std::string unterminated = Number(2, 4) + SlotBytes("-upload") + std::string(520, 'x');
    const struct
    {
        std::string bytes;
        const char* complaint;
        int faults;
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
        {MessageBytes("-upload", "C:\\a"), "path 1 \"C:\\a\"", 0},
    };
    StartAndWait({"--requests", std::to_string(std::size(cases))});
    for (const auto& wrong : cases)
    {
        ASSERT_NO_FATAL_FAILURE(Send(wrong.bytes));
    }
    ASSERT_EQ(Program().Wait(), 0);

    const std::string output = Content("output");
    std::size_t begin = 0;
    int connection = 0;
    for (const auto& wrong : cases)
    {
        const std::string label = "connection " + std::to_string(++connection) + ": ";
        begin = output.find(label + "opened\n", begin);
        const std::size_t end = output.find(label + "closed", begin);
        ASSERT_NE(end, std::string::npos) << output;
        const std::string shown = output.substr(begin, output.find('\n', end) - begin + 1);
        EXPECT_THAT(shown, HasSubstr(wrong.complaint));
        EXPECT_THAT(shown, HasSubstr(", faults " + std::to_string(wrong.faults) + "\n"));
    }
}

TEST_F(MainProgram, BusyPipeLetsNobodyIn)
{
    StartAndWait({"--busy", "--instances", "2", "--default-timeout", "300"});
    const PipeClient client(Pipe());
    EXPECT_EQ(client.Error(), DWORD{ERROR_PIPE_BUSY});
    const Stopwatch time;
    EXPECT_FALSE(WaitNamedPipeW(Wide("\\\\.\\pipe\\" + Pipe()).c_str(), NMPWAIT_USE_DEFAULT_WAIT));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SEM_TIMEOUT});
    EXPECT_GE(time.Milliseconds(), 250);
    EXPECT_TRUE(Program().IsRunning());
}

TEST_F(MainProgram, NeverReadLeavesWritesBeyondTheBufferPending)
{
    StartAndWait({"--never-read", "--buffer", "64"});
    PipeClient client(Pipe());
    ASSERT_TRUE(client.IsOpen()) << client.Error();
    EXPECT_TRUE(client.Write(HeaderBytes(1044)));
    EXPECT_FALSE(client.Write(PayloadBytes("-upload", "C:\\a"), 300));
    EXPECT_TRUE(client.ServerIsThere());
    EXPECT_EQ(Content("raw"), "");
    // The unread header would hold up closing for ever.
    Program().Kill();
}

TEST_F(MainProgram, ReadAfterDelaysTheFirstRead)
{
    StartAndWait({"--read-after", "500", "--requests", "1"});
    const Stopwatch time;
    Send(MessageBytes("-download", "C:\\a"));
    EXPECT_GE(time.Milliseconds(), 450);
    EXPECT_EQ(Program().Wait(), 0);
    EXPECT_THAT(Content("output"), HasSubstr("option \"-download\""));
}

TEST_F(MainProgram, CloseEarlyEndsTheConnectionInsideAMessage)
{
    StartAndWait({"--close-early", "100", "--requests", "2"});
    {
        PipeClient client(Pipe());
        ASSERT_TRUE(client.IsOpen()) << client.Error();
        const std::string message = MessageBytes("-upload", "C:\\a");
        ASSERT_TRUE(client.Write(message.substr(0, 100)));
        EXPECT_TRUE(WaitUntil([&] { return !client.ServerIsThere(); }));
        EXPECT_FALSE(client.Write(message.substr(100), 1000));
    }
    // The instance serves the next one.
    Send(HeaderBytes(1044).substr(0, 10));
    EXPECT_EQ(Program().Wait(), 0);
    EXPECT_THAT(Content("output"),
                HasSubstr("connection 1: closed early, bytes 100, messages 0, faults 0\n"));
    EXPECT_THAT(Content("output"),
                HasSubstr("connection 2: closed by the sender, bytes 10, messages 0, faults 1\n"));
    EXPECT_EQ(Content("raw").size(), 110u);
}

TEST_F(MainProgram, ServesAsManyClientsAtOnceAsItHasInstances)
{
    StartAndWait({"--instances", "2", "--requests", "2"});
    const std::string message = MessageBytes("-upload", "C:\\a");
    PipeClient first(Pipe());
    PipeClient second(Pipe());
    ASSERT_TRUE(first.IsOpen() && second.IsOpen()) << first.Error() << " " << second.Error();
    EXPECT_EQ(PipeClient(Pipe()).Error(), DWORD{ERROR_PIPE_BUSY});
    // The first one's message is under way while the second one's is served whole.
    EXPECT_TRUE(first.Write(message.substr(0, 600)));
    EXPECT_TRUE(second.Write(message));
    EXPECT_TRUE(FlushFileBuffers(second));
    second.Close();
    EXPECT_TRUE(first.Write(message.substr(600)));
    EXPECT_TRUE(FlushFileBuffers(first));
    first.Close();
    EXPECT_EQ(Program().Wait(), 0);
    const std::string output = Content("output");
    for (const char* number : {"1", "2"})
    {
        EXPECT_THAT(output, HasSubstr(std::string("connection ") + number +
                                      ": closed by the sender, bytes 1060, messages 1, faults 0\n"));
    }
}

TEST_F(MainProgram, BecomesIdleWhenAsked)
{
    Start({"--idle-after", "800"});
    EXPECT_EQ(WaitForInputIdle(Program().Handle(), 200), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(WaitUntil([this] { return PipeClient(Pipe()).IsOpen(); })); // before it is idle
    const Stopwatch time;
    EXPECT_EQ(WaitForInputIdle(Program().Handle(), 10000), 0u);
    EXPECT_LT(time.Milliseconds(), 5000);
    EXPECT_TRUE(Program().IsRunning());
}

TEST_F(MainProgram, WithoutAPipeItIsIdleAllTheSame)
{
    Start({"--no-pipe", "--duration", "1500"});
    EXPECT_EQ(WaitForInputIdle(Program().Handle(), 10000), 0u);
    EXPECT_EQ(PipeClient(Pipe()).Error(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(Program().IsRunning());
    EXPECT_EQ(Program().Wait(), 0); // its duration
}

TEST_F(MainProgram, TakesOptionsFromTheEnvironmentToo)
{
    const WideString variable = Wide("SENDORA_MAINPROGRAM_OPTIONS");
    SetEnvironmentVariableW(variable.c_str(),
                            Wide("--output \"" + File("from environment") + "\" --requests 1").c_str());
    Start({});
    SetEnvironmentVariableW(variable.c_str(), nullptr);
    // Arguments come later and win.
    ASSERT_TRUE(WaitUntil([this] { return std::filesystem::exists(File("ready")); }));
    Send("");
    EXPECT_EQ(Program().Wait(), 0);
    EXPECT_THAT(Content("output"), HasSubstr("bytes 0"));
    EXPECT_FALSE(std::filesystem::exists(File("from environment")));
}

TEST_F(MainProgram, ExitCodesTellUsageFromFailure)
{
    Start({"--exit-at-once"});
    EXPECT_EQ(Program().Wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(File("ready")));
    Start({"--bogus"});
    EXPECT_EQ(Program().Wait(), 2);

    StartAndWait({});
    ChildProcess second = ChildProcess::Program(SNDX_MAINPROGRAM, {"--pipe", Pipe(), "--duration", "20000"});
    EXPECT_EQ(second.Wait(), 1); // the pipe belongs to the first one
    ChildProcess third = ChildProcess::Program(
        SNDX_MAINPROGRAM, {"--no-pipe", "--output", File("missing/file"), "--duration", "20000"});
    EXPECT_EQ(third.Wait(), 1);
}
