// The pipe's client against real servers: idle, absent, busy, never reading, ending early.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "tests/win32/timing.h"
#include "win32/namedpipe.h"

namespace
{
using sndxtest::AtLeast;
using sndxtest::OwnTexts;
using sndxtest::Stopwatch;
using sndxtest::SystemText;
using sndxtest::TraceCapture;
using sndxtest::Wide;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct ServerOptions
{
    DWORD instances = 1;
    DWORD quota = 4096; // bytes that a client may write ahead of the reader
    DWORD busyTimeout = 50;
    DWORD access = PIPE_ACCESS_DUPLEX;
};

// One instance of a pipe. A client may open it as soon as it exists.
class Server
{
  public:
    explicit Server(const std::string& name, const ServerOptions& options = {})
        : pipe_(CreateNamedPipeW(Wide("\\\\.\\pipe\\" + name).c_str(), options.access,
                                 PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, options.instances,
                                 options.quota, options.quota, options.busyTimeout, nullptr))
    {
        EXPECT_NE(INVALID_HANDLE_VALUE, pipe_) << GetLastError();
    }
    ~Server() { Close(); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    void Close()
    {
        if (pipe_ != INVALID_HANDLE_VALUE)
        {
            CloseHandle(pipe_);
            pipe_ = INVALID_HANDLE_VALUE;
        }
    }
    // Waits for a client; one that is there already will do.
    void Connect() { ConnectNamedPipe(pipe_, nullptr); }
    // Takes the next client after the present one has gone.
    void Recycle()
    {
        DisconnectNamedPipe(pipe_);
        Connect();
    }
    // Exactly this many bytes; fewer when the client has closed.
    std::string Read(std::size_t size)
    {
        std::string bytes(size, '\0');
        std::size_t have = 0;
        DWORD read = 0;
        while (have < size &&
               ReadFile(pipe_, bytes.data() + have, static_cast<DWORD>(size - have), &read, nullptr) &&
               read > 0)
        {
            have += read;
        }
        bytes.resize(have);
        return bytes;
    }
    DWORD Unread() const
    {
        DWORD available = 0;
        PeekNamedPipe(pipe_, nullptr, 0, nullptr, &available, nullptr);
        return available;
    }

  private:
    HANDLE pipe_;
};

class NamedPipe : public ::testing::Test
{
  protected:
    LWaitResult Send(LNamedPipe& pipe, const std::string& bytes, std::uint32_t timeout = 20000)
    {
        LSimpleSignalWaiter waiter;
        return LNamedPipe::ProcessSendBytes(waiter, pipe, bytes.data(),
                                            static_cast<std::uint32_t>(bytes.size()), timeout);
    }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const sndxtest::WideString wide_ = Wide(name_);
    TraceCapture trace_;
};

TEST_F(NamedPipe, AnIdleServerGetsWhatIsWritten)
{
    Server server(name_);
    LNamedPipe pipe(wide_.c_str());
    EXPECT_TRUE(pipe.IsOpen());
    const std::string header("0123456789abcde\0", 16);
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, header));
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, "second"));
    EXPECT_EQ(header + "second", server.Read(22));
    EXPECT_TRUE(pipe.IsOpen());
    pipe.Close();
    EXPECT_FALSE(pipe.IsOpen());
    pipe.Close();
    EXPECT_THAT(trace_.Texts(), IsEmpty());
}

TEST_F(NamedPipe, AnAbsentServerIsReportedAndFoundLater)
{
    const std::string failed = "LNamedPipe::_Open CreateFile FAILED:" + SystemText(ERROR_FILE_NOT_FOUND);
    const std::string couldNot = "LNamedPipe::_Open Could not open \"" + name_ + "\"";
    LNamedPipe pipe(wide_.c_str());
    EXPECT_THAT(trace_.Texts(), ElementsAre(failed, couldNot));
    EXPECT_FALSE(pipe.IsOpen());
    trace_.Restart();
    EXPECT_EQ(LWaitResult::TimedOut, Send(pipe, "x"));
    EXPECT_THAT(trace_.Texts(), IsEmpty());

    EXPECT_FALSE(pipe.Open(wide_.c_str()));
    EXPECT_THAT(trace_.Texts(), ElementsAre("LNamedPipe::Open  " + name_, failed, couldNot));
    Server server(name_);
    trace_.Restart();
    EXPECT_TRUE(pipe.Open(wide_.c_str()));
    EXPECT_TRUE(pipe.IsOpen());
    EXPECT_THAT(trace_.Texts(), ElementsAre("LNamedPipe::Open  " + name_));
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, "now"));
    EXPECT_EQ("now", server.Read(3));
}

TEST_F(NamedPipe, RefusedAccessIsReported)
{
    const Server server(name_, {.access = PIPE_ACCESS_INBOUND});
    LNamedPipe pipe(wide_.c_str());
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_THAT(trace_.Texts(),
                ElementsAre("LNamedPipe::_Open CreateFile FAILED:" + SystemText(ERROR_ACCESS_DENIED),
                            "LNamedPipe::_Open Could not open \"" + name_ + "\""));
}

TEST_F(NamedPipe, AnOverlongNameIsReportedAndCut)
{
    const std::string name(300, 'p');
    const std::string cut = ("\\\\.\\pipe\\" + name).substr(0, 259);
    LNamedPipe pipe(Wide(name).c_str());
    EXPECT_FALSE(pipe.IsOpen());
    const auto texts = trace_.Texts();
    const auto report = sndxtest::OverflowReport(cut);
    ASSERT_EQ(4u, texts.size());
    EXPECT_EQ(report[0], texts[0]);
    EXPECT_EQ(report[1], texts[1]);
    EXPECT_EQ("LNamedPipe::_Open Could not open \"" + name + "\"", texts[3]);
}

TEST_F(NamedPipe, ABusyServerIsWaitedForAsLongAsItSays)
{
    const Server server(name_, {.busyTimeout = 300});
    LNamedPipe first(wide_.c_str());
    ASSERT_TRUE(first.IsOpen());
    const Stopwatch stopwatch;
    LNamedPipe second(wide_.c_str());
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(300));
    EXPECT_LT(stopwatch.Milliseconds(), 15000);
    EXPECT_FALSE(second.IsOpen());
    EXPECT_TRUE(first.IsOpen());
    EXPECT_THAT(trace_.Texts(), ElementsAre("**LNamedPipe::_Open Pipe was busy"));
}

TEST_F(NamedPipe, ABusyServerThatGetsFreeIsOpened)
{
    Server server(name_, {.busyTimeout = 20000});
    auto first = std::make_unique<LNamedPipe>(wide_.c_str());
    ASSERT_TRUE(first->IsOpen());
    std::thread second(
        [&]
        {
            LNamedPipe pipe(wide_.c_str());
            EXPECT_TRUE(pipe.IsOpen());
            EXPECT_EQ(LWaitResult::Signalled, Send(pipe, "second"));
        });
    Sleep(100);
    first.reset();
    server.Recycle();
    EXPECT_EQ("second", server.Read(6));
    second.join();
    EXPECT_THAT(trace_.Texts(), IsEmpty());
}

TEST_F(NamedPipe, AWriteThatNobodyReadsTimesOutAndLeavesNothing)
{
    Server server(name_, {.quota = 64});
    LNamedPipe pipe(wide_.c_str());
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, std::string(64, 'a'), 0));
    {
        const auto buffer = std::make_unique<std::string>(1000, 'b'); // gone when the server reads
        const Stopwatch stopwatch;
        EXPECT_EQ(LWaitResult::TimedOut, Send(pipe, *buffer, 200));
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(200));
        EXPECT_LT(stopwatch.Milliseconds(), 15000);
    }
    EXPECT_EQ(std::string(64, 'a'), server.Read(64));
    EXPECT_EQ(0u, server.Unread());
    EXPECT_TRUE(pipe.IsOpen());

    // The record of the cancelled write serves the next ones: one that ends at once and one that pends.
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, "next"));
    std::string received;
    std::thread reader(
        [&]
        {
            Sleep(100);
            received = server.Read(4 + 500);
        });
    const Stopwatch stopwatch;
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, std::string(500, 'c')));
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(100));
    reader.join();
    EXPECT_EQ("next" + std::string(500, 'c'), received);
    EXPECT_THAT(trace_.Texts(), IsEmpty());
}

// Answers as it is told, and notes what it was asked to wait for.
class StoppingWaiter final : public LSignalWaiter
{
  public:
    bool IsStopRequested() override { return true; }
    LWaitResult Sleep(std::uint32_t) override { return LWaitResult::Stopped; }
    LWaitResult WaitSignal(HANDLE object, std::uint32_t milliseconds) override
    {
        asked = milliseconds;
        wasSignalled = WaitForSingleObject(object, 0) == WAIT_OBJECT_0;
        return LWaitResult::Stopped;
    }
    LWaitResult WaitSignalObjectGroup(const LSignalObjectGroup&, std::uint32_t) override
    {
        return LWaitResult::Stopped;
    }
    std::uint32_t asked = 0;
    bool wasSignalled = true;
};

TEST_F(NamedPipe, AStopCancelsThePendingWrite)
{
    Server server(name_, {.quota = 64});
    LNamedPipe pipe(wide_.c_str());
    ASSERT_EQ(LWaitResult::Signalled, Send(pipe, std::string(64, 'a')));
    StoppingWaiter waiter;
    const std::string bytes(100, 'b');
    EXPECT_EQ(LWaitResult::Stopped, LNamedPipe::ProcessSendBytes(waiter, pipe, bytes.data(), 100, 1234));
    EXPECT_EQ(1234u, waiter.asked);
    EXPECT_FALSE(waiter.wasSignalled);
    EXPECT_EQ(std::string(64, 'a'), server.Read(64));
    EXPECT_EQ(0u, server.Unread());
}

TEST_F(NamedPipe, AWaiterIsNotAskedForAWriteThatEndsAtOnce)
{
    Server server(name_);
    LNamedPipe pipe(wide_.c_str());
    StoppingWaiter waiter;
    EXPECT_EQ(LWaitResult::Signalled, LNamedPipe::ProcessSendBytes(waiter, pipe, "abc", 3, 1234));
    EXPECT_EQ(0u, waiter.asked);
    EXPECT_EQ("abc", server.Read(3));
}

TEST_F(NamedPipe, AServerThatHasEndedIsNoticed)
{
    Server server(name_, {.quota = 64});
    LNamedPipe pipe(wide_.c_str());
    ASSERT_TRUE(pipe.IsOpen());
    std::thread closing(
        [&]
        {
            Sleep(100);
            server.Close();
        });
    // A pending write ends with its server; nobody looks whether the bytes arrived.
    const Stopwatch stopwatch;
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, std::string(1000, 'a'), 30000));
    EXPECT_LT(stopwatch.Milliseconds(), 15000);
    closing.join();
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(LWaitResult::TimedOut, Send(pipe, "x"));
    pipe.Close();
    EXPECT_THAT(trace_.Texts(), IsEmpty());
}

TEST_F(NamedPipe, ClosingWaitsUntilTheServerHasReadEverything)
{
    for (const bool byDestructor : {false, true})
    {
        SCOPED_TRACE(byDestructor);
        Server server(name_);
        auto pipe = std::make_unique<LNamedPipe>(wide_.c_str());
        ASSERT_EQ(LWaitResult::Signalled, Send(*pipe, "last words"));
        std::string received;
        std::thread reader(
            [&]
            {
                Sleep(200);
                received = server.Read(100);
            });
        const Stopwatch stopwatch;
        if (!byDestructor)
        {
            pipe->Close();
        }
        pipe.reset();
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(200));
        EXPECT_LT(stopwatch.Milliseconds(), 15000);
        reader.join();
        EXPECT_EQ("last words", received);
    }
}

TEST_F(NamedPipe, OpeningAgainClosesTheOldConnectionFirst)
{
    Server first(name_, {.instances = 2});
    LNamedPipe pipe(wide_.c_str());
    Server second(name_, {.instances = 2});
    ASSERT_EQ(LWaitResult::Signalled, Send(pipe, "to the first"));
    std::string received;
    std::thread reader(
        [&]
        {
            Sleep(100);
            received = first.Read(100); // ends when the client has closed
        });
    const Stopwatch stopwatch;
    EXPECT_TRUE(pipe.Open(wide_.c_str()));
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(100)) << "the old connection was not flushed";
    reader.join();
    EXPECT_EQ("to the first", received);
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, "to the second"));
    EXPECT_EQ("to the second", second.Read(13));
}

TEST_F(NamedPipe, LeavesNoHandleBehind)
{
    EXPECT_EQ(0, sndxtest::HandlesLeft(
                     [&]
                     {
                         const Server first(name_, {.instances = 2});
                         const Server second(name_, {.instances = 2});
                         LNamedPipe pipe(wide_.c_str());
                         EXPECT_TRUE(pipe.IsOpen());
                         EXPECT_TRUE(pipe.Open(wide_.c_str()));
                     }));
    EXPECT_EQ(0, sndxtest::HandlesLeft([&] { const LNamedPipe pipe(wide_.c_str()); }));
}

SNDX_CHILD(PipeServer)
{
    Server server(arguments.at(0), {.busyTimeout = 20000});
    sndxtest::Announce("listening");
    server.Connect();
    const std::string bytes = server.Read(5);
    if (bytes == "hello")
    {
        sndxtest::Announce("received");
    }
    sndxtest::WaitFor("end");
    return bytes == "hello" ? 0 : 1;
}

TEST_F(NamedPipe, ReachesAServerInAnotherProcess)
{
    sndxtest::ClearPoints();
    sndxtest::ChildProcess child("PipeServer", {name_});
    ASSERT_TRUE(sndxtest::WaitFor("listening"));
    LNamedPipe pipe(wide_.c_str());
    ASSERT_TRUE(pipe.IsOpen());
    EXPECT_EQ(LWaitResult::Signalled, Send(pipe, "hello"));
    EXPECT_TRUE(sndxtest::WaitFor("received"));
    EXPECT_TRUE(pipe.IsOpen());
    child.Kill();
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(LWaitResult::TimedOut, Send(pipe, "x"));
    const Stopwatch stopwatch;
    pipe.Close();
    EXPECT_LT(stopwatch.Milliseconds(), 10000);
    EXPECT_THAT(OwnTexts(trace_), IsEmpty());
}
} // namespace
