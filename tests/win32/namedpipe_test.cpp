// The pipe's client against a server that is refused, never reads, ends early or reads late. What arrives,
// and servers that are absent or stay busy, are tested with the module's requests.

#include <memory>

#ifndef _WIN32
#include "sndxposix.h"
#endif

#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "tests/win32/recordingwaiter.h"
#include "win32/file.h"
#include "win32/namedpipe.h"

namespace
{
using namespace sndxtest;

// One instance of a pipe. A client may open it as soon as it exists.
class Server : public LFileRef
{
  public:
    // A client may write quota bytes ahead of the reader.
    explicit Server(const std::string& name, DWORD quota, DWORD access = PIPE_ACCESS_DUPLEX)
        : LFileRef(CreateNamedPipeW(Wide("\\\\.\\pipe\\" + name).c_str(), access,
                                    PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 2, quota, quota, 20000,
                                    nullptr))
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
    static LWaitResult Send(LNamedPipe& pipe, const std::string& bytes, std::uint32_t timeout = 20000,
                            LSignalWaiter* waiter = nullptr)
    {
        LSimpleSignalWaiter simple;
        return LNamedPipe::ProcessSendBytes(waiter == nullptr ? simple : *waiter, pipe, bytes.data(),
                                            static_cast<std::uint32_t>(bytes.size()), timeout);
    }
    // Does something else in the given number of milliseconds and expects the call to take that long.
    template <class Call, class Action>
    static void ExpectToWait(DWORD milliseconds, Call call, Action later)
    {
        const Stopwatch stopwatch;
        const auto other = Later(milliseconds, later);
        call();
        EXPECT_GE(stopwatch.Milliseconds(), AtLeast(milliseconds));
        EXPECT_LT(stopwatch.Milliseconds(), 15000);
    }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const WideString wide_ = Wide(name_);
    TraceCapture trace_;
};

TEST_F(NamedPipe, RefusedAccessAndAnOverlongNameAreReported)
{
    const Server server(name_, 64, PIPE_ACCESS_INBOUND);
    EXPECT_FALSE(LNamedPipe(wide_.c_str()).IsOpen());
    EXPECT_EQ(trace_.Texts(), (Lines{"LNamedPipe::_Open CreateFile FAILED:" + SystemText(ERROR_ACCESS_DENIED),
                                     "LNamedPipe::_Open Could not open \"" + name_ + "\""}));
    const std::string name(300, 'p');
    EXPECT_TRUE(AreLines(Traced([&] { LNamedPipe pipe(Wide(name).c_str()); }),
                         Overflow("lw", ("\\\\.\\pipe\\" + name).substr(0, 259)) +
                             Lines{"LNamedPipe::_Open CreateFile FAILED:...",
                                   "LNamedPipe::_Open Could not open \"" + name + "\""}));
}

TEST_F(NamedPipe, ABusyServerThatGetsFreeIsOpened)
{
    Server server(name_, 4096);
    auto first = std::make_unique<LNamedPipe>(wide_.c_str());
    const auto freed = Later(100,
                             [&]
                             {
                                 first.reset();
                                 server.Recycle();
                                 EXPECT_EQ(server.Read(6), "second");
                             });
    LNamedPipe pipe(wide_.c_str());
    if (!pipe.IsOpen())
    {
        ADD_FAILURE() << "not opened when the server got free";
        pipe.Open(wide_.c_str()); // or the server waits for ever
    }
    EXPECT_EQ(Send(pipe, "second"), LWaitResult::Signalled);
    EXPECT_EQ(trace_.Texts(), Lines());
}

TEST_F(NamedPipe, AWriteThatNobodyReadsTimesOutAndLeavesNothing)
{
    Server server(name_, 64);
    LNamedPipe pipe(wide_.c_str());
    EXPECT_EQ(Send(pipe, std::string(64, 'a'), 0), LWaitResult::Signalled);
    auto buffer = std::make_unique<std::string>(1000, 'b');
    ExpectToWait(
        200, [&] { EXPECT_EQ(Send(pipe, *buffer, 200), LWaitResult::TimedOut); }, [] {});
    buffer.reset(); // gone when the server reads
    EXPECT_EQ(server.Read(64), std::string(64, 'a'));
    EXPECT_EQ(server.Unread(), 0u);
    EXPECT_TRUE(pipe.IsOpen());

    // The record of the cancelled write serves the next ones: one that ends at once and one that pends.
    EXPECT_EQ(Send(pipe, "next"), LWaitResult::Signalled);
    ExpectToWait(
        100, [&] { EXPECT_EQ(Send(pipe, std::string(500, 'c')), LWaitResult::Signalled); },
        [&] { EXPECT_EQ(server.Read(4 + 500), "next" + std::string(500, 'c')); });
    EXPECT_EQ(trace_.Texts(), Lines());
}

#ifndef _WIN32 // an event that cannot be had
TEST_F(NamedPipe, WithoutItsEventNothingIsWritten)
{
    const Server server(name_, 64);
    sndxposix::FailCall("CreateEventW", ERROR_NOT_ENOUGH_MEMORY);
    LNamedPipe pipe(wide_.c_str());
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_TRUE(pipe.IsOpen());
    for (const std::size_t size : {3u, 100u}) // what fits, and what would stay pending
    {
        EXPECT_EQ(Send(pipe, std::string(size, 'x')), LWaitResult::TimedOut);
        EXPECT_EQ(server.Unread(), 0u);
    }
}
#endif

TEST_F(NamedPipe, AStopCancelsThePendingWrite)
{
    Server server(name_, 4);
    LNamedPipe pipe(wide_.c_str());
    RecordingWaiter waiter;
    EXPECT_EQ(Send(pipe, "aaaa", 1, &waiter), LWaitResult::Signalled);
    EXPECT_EQ(Send(pipe, "b", 1234, &waiter), LWaitResult::Stopped);
    EXPECT_EQ(waiter.asked, RecordingWaiter::Times{1234}) << "not for the write that ended at once";
    EXPECT_EQ(server.Read(4), "aaaa");
    EXPECT_EQ(server.Unread(), 0u);
}

TEST_F(NamedPipe, AServerThatHasEndedIsNoticed)
{
    Server server(name_, 64);
    LNamedPipe pipe(wide_.c_str());
    EXPECT_TRUE(pipe.IsOpen());
    // A pending write ends with its server; nobody looks whether the bytes arrived.
    ExpectToWait(
        100, [&] { EXPECT_EQ(Send(pipe, std::string(1000, 'a'), 30000), LWaitResult::Signalled); },
        [&] { server.Close(); });
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_EQ(Send(pipe, "x"), LWaitResult::TimedOut);
    pipe.Close();
    pipe.Close();
    EXPECT_EQ(Send(pipe, "x"), LWaitResult::TimedOut);
    EXPECT_EQ(trace_.Texts(), Lines());
}

TEST_F(NamedPipe, ClosingWaitsUntilTheServerHasReadEverything)
{
    for (const std::string way : {"close", "destroy", "open again"})
    {
        SCOPED_TRACE(way);
        Server server(name_, 4096);
        auto pipe = std::make_unique<LNamedPipe>(wide_.c_str());
        Server second(name_, 4096);
        EXPECT_EQ(Send(*pipe, "last words"), LWaitResult::Signalled);
        const auto leave = [&]
        {
            way == "destroy" ? pipe.reset()
            : way == "close" ? pipe->Close()
                             : static_cast<void>(pipe->Open(wide_.c_str()));
        };
        // The reading ends when the client has closed.
        ExpectToWait(200, leave, [&] { EXPECT_EQ(server.Read(100), "last words"); });
        if (way == "open again")
        {
            EXPECT_EQ(Send(*pipe, "to the second"), LWaitResult::Signalled);
            EXPECT_EQ(second.Read(13), "to the second");
        }
    }
}

#ifndef _WIN32 // a wait that cannot be had
TEST_F(NamedPipe, AFailedWaitLeavesNoWritePending)
{
    Server server(name_, 4);
    LNamedPipe pipe(wide_.c_str());
    EXPECT_EQ(Send(pipe, "aaaa", 0), LWaitResult::Signalled);
    sndxposix::FailCall("WaitForSingleObject", ERROR_INVALID_HANDLE);
    EXPECT_EQ(Send(pipe, "bbbb"), LWaitResult::Signalled) << "what the waiter says";
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    EXPECT_EQ(server.Read(4), "aaaa");
    EXPECT_EQ(server.Unread(), 0u);
    server.Close(); // or what is pending would be waited for
}
#endif

#ifndef _WIN32 // the systems at hand end a cancelled write within the cancellation; here it shows who asks
TEST_F(NamedPipe, TheEndOfACancelledWriteIsWaitedFor)
{
    Server server(name_, 4);
    LNamedPipe pipe(wide_.c_str());
    sndxposix::FailCall("GetOverlappedResult", ERROR_INVALID_HANDLE);
    EXPECT_EQ(Send(pipe, "aaaa", 0), LWaitResult::Signalled);
    EXPECT_EQ(sndxposix::PendingFailures(), 1u) << "no cancelled write yet";
    EXPECT_EQ(Send(pipe, "b", 0), LWaitResult::TimedOut);
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    server.Close(); // nobody reads what the pipe's end would wait for
}
#endif
} // namespace
