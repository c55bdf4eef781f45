// The pipe's client against real servers: idle, absent, busy, never reading, ending early. Servers in other
// processes, and one that stays busy, are tested with the module's requests.

#include <memory>
#include <thread>

#ifndef _WIN32
#include "sndxposix.h"
#endif

#include "tests/support/reports.h"
#include "tests/win32/recordingwaiter.h"
#include "tests/support/timing.h"
#include "win32/file.h"
#include "win32/namedpipe.h"

namespace
{
using namespace sndxtest;

struct ServerOptions
{
    DWORD instances = 1;
    DWORD quota = 4096; // bytes that a client may write ahead of the reader
    DWORD busyTimeout = 50;
    DWORD access = PIPE_ACCESS_DUPLEX;
};

// One instance of a pipe. A client may open it as soon as it exists.
class Server : public LFileRef
{
  public:
    explicit Server(const std::string& name, const ServerOptions& options = {})
        : LFileRef(CreateNamedPipeW(Wide("\\\\.\\pipe\\" + name).c_str(), options.access,
                                    PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, options.instances,
                                    options.quota, options.quota, options.busyTimeout, nullptr))
    {
        EXPECT_TRUE(IsOpen()) << GetLastError();
    }
    // Takes the next client after the present one has gone.
    void Recycle()
    {
        DisconnectNamedPipe(hFile);
        ConnectNamedPipe(hFile, nullptr);
    }
    // Exactly this many bytes; fewer when the client has closed.
    std::string Read(std::size_t size)
    {
        std::string bytes(size, '\0');
        std::size_t have = 0;
        for (std::uint32_t read = 1; have < size && read > 0; have += read)
        {
            read = _Read(bytes.data() + have, size - have);
        }
        return bytes.substr(0, have);
    }
    DWORD Unread() const
    {
        DWORD available = 0;
        PeekNamedPipe(hFile, nullptr, 0, nullptr, &available, nullptr);
        return available;
    }
};

class NamedPipe : public ::testing::Test
{
  protected:
    static LWaitResult Send(LNamedPipe& pipe, const std::string& bytes, std::uint32_t timeout = 20000)
    {
        LSimpleSignalWaiter waiter;
        return LNamedPipe::ProcessSendBytes(waiter, pipe, bytes.data(),
                                            static_cast<std::uint32_t>(bytes.size()), timeout);
    }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const WideString wide_ = Wide(name_);
    const std::string opening_ = "LNamedPipe::Open  " + name_;
    const std::string couldNot_ = "LNamedPipe::_Open Could not open \"" + name_ + "\"";
    TraceCapture trace_;
};

TEST_F(NamedPipe, AnAbsentServerIsReportedAndFoundLater)
{
    const std::string failed = "LNamedPipe::_Open CreateFile FAILED:" + SystemText(ERROR_FILE_NOT_FOUND);
    LNamedPipe pipe(wide_.c_str());
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(Send(pipe, "x"), LWaitResult::TimedOut);
    EXPECT_FALSE(pipe.Open(wide_.c_str()));
    Server server(name_);
    EXPECT_TRUE(pipe.Open(wide_.c_str()));
    EXPECT_TRUE(pipe.IsOpen());
    const std::string header("0123456789abcde\0", 16);
    EXPECT_EQ(Send(pipe, header), LWaitResult::Signalled);
    EXPECT_EQ(Send(pipe, "second"), LWaitResult::Signalled);
    EXPECT_EQ(server.Read(22), header + "second");
    pipe.Close();
    pipe.Close();
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(trace_.Texts(), (Lines{failed, couldNot_, opening_, failed, couldNot_, opening_}));
}

TEST_F(NamedPipe, RefusedAccessAndAnOverlongNameAreReported)
{
    const Server server(name_, {.access = PIPE_ACCESS_INBOUND});
    EXPECT_FALSE(LNamedPipe(wide_.c_str()).IsOpen());
    EXPECT_EQ(trace_.Texts(),
              (Lines{"LNamedPipe::_Open CreateFile FAILED:" + SystemText(ERROR_ACCESS_DENIED), couldNot_}));
    const std::string name(300, 'p');
    Lines texts = Traced([&] { LNamedPipe pipe(Wide(name).c_str()); });
    ASSERT_EQ(texts.size(), 4u);
    texts.erase(texts.begin() + 2); // the system's text
    EXPECT_EQ(texts, (Overflow("lw", ("\\\\.\\pipe\\" + name).substr(0, 259)) +
                      Lines{"LNamedPipe::_Open Could not open \"" + name + "\""}));
}

TEST_F(NamedPipe, ABusyServerThatGetsFreeIsOpened)
{
    Server server(name_, {.busyTimeout = 20000});
    auto first = std::make_unique<LNamedPipe>(wide_.c_str());
    std::thread second(
        [&]
        {
            LNamedPipe pipe(wide_.c_str());
            EXPECT_EQ(Send(pipe, "second"), LWaitResult::Signalled);
        });
    Sleep(100);
    first.reset();
    server.Recycle();
    EXPECT_EQ(server.Read(6), "second");
    second.join();
    EXPECT_EQ(trace_.Texts(), Lines());
}

TEST_F(NamedPipe, AWriteThatNobodyReadsTimesOutAndLeavesNothing)
{
    Server server(name_, {.quota = 64});
    LNamedPipe pipe(wide_.c_str());
    EXPECT_EQ(Send(pipe, std::string(64, 'a'), 0), LWaitResult::Signalled);
    {
        const auto buffer = std::make_unique<std::string>(1000, 'b'); // gone when the server reads
        const Stopwatch stopwatch;
        EXPECT_EQ(Send(pipe, *buffer, 200), LWaitResult::TimedOut);
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(200));
        EXPECT_LT(stopwatch.Milliseconds(), 15000);
    }
    EXPECT_EQ(server.Read(64), std::string(64, 'a'));
    EXPECT_EQ(server.Unread(), 0u);
    EXPECT_TRUE(pipe.IsOpen());

    // The record of the cancelled write serves the next ones: one that ends at once and one that pends.
    EXPECT_EQ(Send(pipe, "next"), LWaitResult::Signalled);
    std::string received;
    std::thread reader(
        [&]
        {
            Sleep(100);
            received = server.Read(4 + 500);
        });
    const Stopwatch stopwatch;
    EXPECT_EQ(Send(pipe, std::string(500, 'c')), LWaitResult::Signalled);
    EXPECT_GE(stopwatch.Milliseconds(), AtLeast(100));
    reader.join();
    EXPECT_EQ(received, "next" + std::string(500, 'c'));
    EXPECT_EQ(trace_.Texts(), Lines());
}

TEST_F(NamedPipe, AStopCancelsThePendingWrite)
{
    Server server(name_, {.quota = 4});
    LNamedPipe pipe(wide_.c_str());
    RecordingWaiter waiter;
    EXPECT_EQ(LNamedPipe::ProcessSendBytes(waiter, pipe, "aaaa", 4, 1), LWaitResult::Signalled);
    EXPECT_EQ(LNamedPipe::ProcessSendBytes(waiter, pipe, "b", 1, 1234), LWaitResult::Stopped);
    EXPECT_EQ(waiter.asked, RecordingWaiter::Times{1234}) << "not for the write that ended at once";
    EXPECT_EQ(server.Read(4), "aaaa");
    EXPECT_EQ(server.Unread(), 0u);
}

TEST_F(NamedPipe, AServerThatHasEndedIsNoticed)
{
    Server server(name_, {.quota = 64});
    LNamedPipe pipe(wide_.c_str());
    EXPECT_TRUE(pipe.IsOpen());
    std::thread closing(
        [&]
        {
            Sleep(100);
            server.Close();
        });
    // A pending write ends with its server; nobody looks whether the bytes arrived.
    const Stopwatch stopwatch;
    EXPECT_EQ(Send(pipe, std::string(1000, 'a'), 30000), LWaitResult::Signalled);
    EXPECT_LT(stopwatch.Milliseconds(), 15000);
    closing.join();
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(Send(pipe, "x"), LWaitResult::TimedOut);
    pipe.Close();
    EXPECT_EQ(trace_.Texts(), Lines());
}

TEST_F(NamedPipe, ClosingWaitsUntilTheServerHasReadEverything)
{
    for (const std::string way : {"close", "destroy", "open again"})
    {
        SCOPED_TRACE(way);
        Server server(name_, {.instances = 2});
        auto pipe = std::make_unique<LNamedPipe>(wide_.c_str());
        Server second(name_, {.instances = 2});
        EXPECT_EQ(Send(*pipe, "last words"), LWaitResult::Signalled);
        std::string received;
        std::thread reader(
            [&]
            {
                Sleep(200);
                received = server.Read(100); // ends when the client has closed
            });
        const Stopwatch stopwatch;
        if (way == "destroy")
        {
            pipe.reset();
        }
        else
        {
            way == "close" ? pipe->Close() : static_cast<void>(pipe->Open(wide_.c_str()));
        }
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(200));
        EXPECT_LT(stopwatch.Milliseconds(), 15000);
        reader.join();
        EXPECT_EQ(received, "last words");
        if (way == "open again")
        {
            EXPECT_EQ(Send(*pipe, "to the second"), LWaitResult::Signalled);
            EXPECT_EQ(second.Read(13), "to the second");
        }
    }
}
#ifndef _WIN32 // the systems at hand end a cancelled write within the cancellation; here it shows who asks
TEST_F(NamedPipe, TheEndOfACancelledWriteIsWaitedFor)
{
    Server server(name_, {.quota = 4});
    LNamedPipe pipe(wide_.c_str());
    sndxposix::FailCall("GetOverlappedResult", ERROR_INVALID_HANDLE);
    EXPECT_EQ(Send(pipe, "aaaa", 0), LWaitResult::Signalled);
    EXPECT_EQ(sndxposix::PendingFailures(), 1u) << "no cancelled write yet";
    EXPECT_EQ(Send(pipe, "b", 0), LWaitResult::TimedOut);
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    sndxposix::ResetFailures();
    server.Close(); // nobody reads what the pipe's end would wait for
}
#endif
} // namespace
