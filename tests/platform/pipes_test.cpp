// Both ends of named pipes: opening, quotas, pending and cancelled transfers, and the ends of connections.

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/support/child.h"
#include "tests/support/text.h"

namespace
{
using sndxtest::Announce;
using sndxtest::ChildProcess;
using sndxtest::WaitFor;
using Clock = std::chrono::steady_clock;

constexpr WCHAR pipeName[] = TEXT("\\\\.\\pipe\\sndxtest pipe");
constexpr DWORD quota = 64;

long long MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Owns a handle.
class Handle
{
  public:
    explicit Handle(HANDLE value) : value_(value) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    operator HANDLE() const { return value_; }
    bool IsOpen() const { return value_ != INVALID_HANDLE_VALUE; }
    void Close()
    {
        if (IsOpen())
        {
            CloseHandle(value_);
            value_ = INVALID_HANDLE_VALUE;
        }
    }

  private:
    HANDLE value_;
};

HANDLE CreateServer(DWORD instances = 1, DWORD timeout = 200, DWORD size = quota,
                    DWORD mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED)
{
    return CreateNamedPipeW(pipeName, mode, PIPE_TYPE_BYTE, instances, size, size, timeout, nullptr);
}

HANDLE OpenClient(DWORD access = GENERIC_READ | GENERIC_WRITE, DWORD flags = FILE_FLAG_OVERLAPPED)
{
    return CreateFileW(pipeName, access, 0, nullptr, OPEN_EXISTING, flags, nullptr);
}

// One overlapped transfer with its event.
struct Transfer
{
    Transfer() { overlapped.hEvent = event; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    bool IsSignalled() const { return WaitForSingleObject(event, 0) == WAIT_OBJECT_0; }

    Handle event{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    OVERLAPPED overlapped{};
    DWORD bytes = 0;
};

// The error of a call that has returned FALSE, 0 for TRUE.
DWORD ErrorOf(BOOL result)
{
    return result ? DWORD{ERROR_SUCCESS} : GetLastError();
}

DWORD Write(HANDLE pipe, const std::string& data, Transfer& transfer)
{
    return ErrorOf(
        WriteFile(pipe, data.data(), static_cast<DWORD>(data.size()), &transfer.bytes, &transfer.overlapped));
}

DWORD Result(HANDLE pipe, Transfer& transfer, BOOL wait = FALSE)
{
    return ErrorOf(GetOverlappedResult(pipe, &transfer.overlapped, &transfer.bytes, wait));
}

// Reads what is there, at most size bytes; waits for at least one.
std::string Read(HANDLE pipe, DWORD size)
{
    std::string data(size, '\0');
    Transfer transfer;
    if (!ReadFile(pipe, data.data(), size, &transfer.bytes, &transfer.overlapped) &&
        (GetLastError() != ERROR_IO_PENDING || Result(pipe, transfer, TRUE) != ERROR_SUCCESS))
    {
        return "(error " + std::to_string(GetLastError()) + ")";
    }
    data.resize(transfer.bytes);
    return data;
}

// Number of unread bytes, or the error as a negative number.
long Available(HANDLE pipe)
{
    DWORD available = 0;
    return PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) ? static_cast<long>(available)
                                                                         : -static_cast<long>(GetLastError());
}

class Pipes : public ::testing::Test
{
  protected:
    Pipes() { sndxtest::ClearPoints(); }
};

TEST_F(Pipes, AbsentPipeIsNotFoundAtOnce)
{
    const auto start = Clock::now();
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOf(WaitNamedPipeW(pipeName, 5000)));
    EXPECT_LT(MillisecondsSince(start), 1000);
    const WCHAR* const notAPipe = TEXT("sndxtest pipe");
    EXPECT_EQ(INVALID_HANDLE_VALUE,
              CreateNamedPipeW(notAPipe, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 1, 1, 0, nullptr));
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, GetLastError());
}

TEST_F(Pipes, FreeInstanceOpensBeforeTheServerListens)
{
    const Handle server(CreateServer());
    ASSERT_TRUE(server.IsOpen());
    EXPECT_TRUE(WaitNamedPipeW(pipeName, 1000));
    const Handle client(CreateFileW(TEXT("\\\\.\\PIPE\\SNDXTEST pipe"), GENERIC_READ | GENERIC_WRITE, 0,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    ASSERT_TRUE(client.IsOpen());
    Transfer connect;
    EXPECT_EQ(DWORD{ERROR_PIPE_CONNECTED}, ErrorOf(ConnectNamedPipe(server, &connect.overlapped)));
    EXPECT_EQ(0, Available(server));
    EXPECT_EQ(0, Available(client));

    // Both directions.
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "question", transfer));
    EXPECT_EQ(DWORD{8}, transfer.bytes);
    EXPECT_TRUE(transfer.IsSignalled());
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(server, "answer", transfer));
    EXPECT_EQ("question", Read(server, 100));
    EXPECT_EQ("ans", Read(client, 3));
    EXPECT_EQ("wer", Read(client, 100));
}

TEST_F(Pipes, OverlappedConnectEndsWhenAClientOpens)
{
    const Handle server(CreateServer());
    Transfer connect;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, ErrorOf(ConnectNamedPipe(server, &connect.overlapped)));
    EXPECT_FALSE(connect.IsSignalled());
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result(server, connect));
    const Handle client(OpenClient());
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(connect.event, 5000));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(server, connect));
}

TEST_F(Pipes, BusyPipeWaitsAsLongAsAskedOrAsTheServerSays)
{
    const Handle server(CreateServer(1, 150));
    const Handle client(OpenClient());
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_PIPE_BUSY}, GetLastError());
    EXPECT_EQ(INVALID_HANDLE_VALUE, CreateServer());
    EXPECT_EQ(DWORD{ERROR_PIPE_BUSY}, GetLastError());

    auto start = Clock::now();
    EXPECT_EQ(DWORD{ERROR_SEM_TIMEOUT}, ErrorOf(WaitNamedPipeW(pipeName, NMPWAIT_USE_DEFAULT_WAIT)));
    EXPECT_GE(MillisecondsSince(start), 140);
    EXPECT_LT(MillisecondsSince(start), 600);
    start = Clock::now();
    EXPECT_EQ(DWORD{ERROR_SEM_TIMEOUT}, ErrorOf(WaitNamedPipeW(pipeName, 40)));
    EXPECT_GE(MillisecondsSince(start), 35);
    EXPECT_LT(MillisecondsSince(start), 140);
}

TEST_F(Pipes, BusyPipeThatGetsFreeEndsTheWait)
{
    const Handle server(CreateServer());
    Handle client(OpenClient());
    std::thread freeing(
        [&]
        {
            Sleep(50);
            client.Close();
            EXPECT_TRUE(DisconnectNamedPipe(server));
            Transfer connect;
            EXPECT_EQ(DWORD{ERROR_IO_PENDING}, ErrorOf(ConnectNamedPipe(server, &connect.overlapped)));
            EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(server, connect, TRUE));
        });
    EXPECT_TRUE(WaitNamedPipeW(pipeName, NMPWAIT_WAIT_FOREVER));
    const Handle second(OpenClient());
    EXPECT_TRUE(second.IsOpen());
    freeing.join();
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(second, "again", transfer));
    EXPECT_EQ("again", Read(server, 100));
}

TEST_F(Pipes, InstancesServeOneClientEach)
{
    const Handle first(CreateServer(2));
    const Handle second(CreateServer(2));
    EXPECT_EQ(INVALID_HANDLE_VALUE, CreateServer(2));
    EXPECT_EQ(DWORD{ERROR_PIPE_BUSY}, GetLastError());
    const Handle a(OpenClient());
    const Handle b(OpenClient());
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_PIPE_BUSY}, GetLastError());
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(a, "of a", transfer));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(b, "of b", transfer));
    EXPECT_EQ("of a", Available(first) > 0 ? Read(first, 4) : "");
    EXPECT_EQ("of b", Available(second) > 0 ? Read(second, 4) : "");
}

TEST_F(Pipes, ClientNeedsTheAccessThatTheServerGives)
{
    const Handle server(CreateServer(1, 0, quota, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED));
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    const Handle client(OpenClient(GENERIC_WRITE));
    EXPECT_TRUE(client.IsOpen());
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "in", transfer));
    EXPECT_EQ("in", Read(server, 9));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Write(server, "out", transfer));
}

TEST_F(Pipes, WriteBeyondTheQuotaPendsUntilRead)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    Transfer first;
    Transfer second;
    Transfer third;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, std::string(16, 'a'), first));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, std::string(48, 'b'), second));
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, "c", third));
    EXPECT_FALSE(third.IsSignalled());
    EXPECT_FALSE(HasOverlappedIoCompleted(&third.overlapped));
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result(client, third));
    EXPECT_EQ(std::string(16, 'a') + "b", Read(server, 17));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(third.event, 5000));
    EXPECT_TRUE(HasOverlappedIoCompleted(&third.overlapped));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(client, third));
    EXPECT_EQ(DWORD{1}, third.bytes);
    EXPECT_EQ(std::string(47, 'b') + "c", Read(server, 100));
    EXPECT_EQ(0, Available(server));
}

TEST_F(Pipes, WithoutQuotaEveryWritePendsUntilRead)
{
    const Handle server(CreateServer(1, 0, 0));
    const Handle client(OpenClient());
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "", transfer)) << "nothing to deliver";
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, "xy", transfer));
    EXPECT_EQ("x", Read(server, 1));
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result(client, transfer));
    EXPECT_EQ("y", Read(server, 1));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(client, transfer, TRUE));
    EXPECT_EQ(DWORD{2}, transfer.bytes);
}

TEST_F(Pipes, CancelledWriteLeavesNothing)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    Transfer fitting;
    Transfer pending;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, std::string(quota, 'a'), fitting));
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, std::string(1000, 'b'), pending));
    std::thread([&] { EXPECT_TRUE(CancelIo(client)); }).join(); // not that thread's transfer
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result(client, pending));
    EXPECT_TRUE(CancelIo(client));
    EXPECT_EQ(DWORD{ERROR_OPERATION_ABORTED}, Result(client, pending, TRUE));
    EXPECT_EQ(DWORD{0}, pending.bytes);
    EXPECT_TRUE(pending.IsSignalled());
    EXPECT_EQ(long{quota}, Available(server));

    // The same record serves again, and a part that was read cannot be taken back.
    EXPECT_EQ(std::string(quota, 'a'), Read(server, 2000));
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, "0123456789" + std::string(quota, 'c'), pending));
    EXPECT_EQ("0123", Read(server, 4));
    EXPECT_EQ(DWORD{ERROR_IO_INCOMPLETE}, Result(client, pending));
    EXPECT_TRUE(CancelIo(client));
    EXPECT_EQ(DWORD{ERROR_OPERATION_ABORTED}, Result(client, pending, TRUE));
    EXPECT_EQ(0, Available(server));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "next", pending));
    EXPECT_EQ("next", Read(server, 2000));
}

TEST_F(Pipes, CancelTakesOutOneThreadsWritesAmongOthers)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    Transfer mine;
    Transfer theirs;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, std::string(100, 'm'), mine));
    // A thread's end cancels what it has pending, so it has to stay.
    std::thread other(
        [&]
        {
            EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, std::string(100, 't'), theirs));
            Announce("written");
            EXPECT_TRUE(WaitFor("read"));
        });
    ASSERT_TRUE(WaitFor("written"));
    EXPECT_TRUE(CancelIo(client));
    EXPECT_EQ(DWORD{ERROR_OPERATION_ABORTED}, Result(client, mine, TRUE));
    EXPECT_EQ(std::string(100, 't'), Read(server, 1000));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(client, theirs, TRUE));
    EXPECT_EQ(DWORD{100}, theirs.bytes);
    Announce("read");
    other.join();
}

TEST_F(Pipes, PendingReadTakesWhatComesAndCanBeCancelled)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    char buffer[16] = {};
    Transfer read;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING},
              ErrorOf(ReadFile(server, buffer, sizeof buffer, &read.bytes, &read.overlapped)));
    EXPECT_TRUE(CancelIo(server));
    EXPECT_EQ(DWORD{ERROR_OPERATION_ABORTED}, Result(server, read, TRUE));
    EXPECT_EQ(DWORD{ERROR_IO_PENDING},
              ErrorOf(ReadFile(server, buffer, sizeof buffer, &read.bytes, &read.overlapped)));
    EXPECT_FALSE(read.IsSignalled());
    Transfer write;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "late", write));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(server, read, TRUE));
    EXPECT_EQ("late", std::string(buffer, read.bytes));
}

TEST_F(Pipes, PeekShowsBytesWithoutTakingThem)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "abcdef", transfer));
    char buffer[4] = {};
    DWORD read = 0;
    DWORD available = 0;
    EXPECT_TRUE(PeekNamedPipe(server, buffer, sizeof buffer, &read, &available, nullptr));
    EXPECT_EQ("abcd", std::string(buffer, read));
    EXPECT_EQ(DWORD{6}, available);
    EXPECT_TRUE(PeekNamedPipe(server, nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ("abcdef", Read(server, 100));
}

TEST_F(Pipes, AfterTheServerHasClosedTheRestCanBeRead)
{
    Handle server(CreateServer());
    const Handle client(OpenClient());
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(server, "rest", transfer));
    server.Close();
    EXPECT_EQ(4, Available(client));
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, Write(client, "x", transfer));
    EXPECT_EQ("rest", Read(client, 100));
    EXPECT_EQ(-static_cast<long>(ERROR_BROKEN_PIPE), Available(client));
    EXPECT_EQ("(error 109)", Read(client, 100));
    EXPECT_TRUE(FlushFileBuffers(client));
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
}

TEST_F(Pipes, AfterTheClientHasClosedTheServerDisconnects)
{
    const Handle server(CreateServer());
    Handle client(OpenClient());
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "rest", transfer));
    client.Close();
    Transfer connect;
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, ErrorOf(ConnectNamedPipe(server, &connect.overlapped)));
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_PIPE_BUSY}, GetLastError());
    EXPECT_EQ("rest", Read(server, 100));
    EXPECT_EQ("(error 109)", Read(server, 100));
    EXPECT_EQ(-static_cast<long>(ERROR_BROKEN_PIPE), Available(server));
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient()) << "not listening again yet";
    EXPECT_EQ(DWORD{ERROR_PIPE_BUSY}, GetLastError());
}

TEST_F(Pipes, DisconnectLosesWhatIsUnreadAndTellsTheOldClient)
{
    const Handle server(CreateServer());
    const Handle old(OpenClient());
    Transfer write;
    Transfer pending;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(server, "lost", write));
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(old, std::string(100, 'p'), pending));
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(DWORD{ERROR_PIPE_NOT_CONNECTED}, Result(old, pending, TRUE));
    const auto expectDisconnected = [&]
    {
        EXPECT_EQ(-static_cast<long>(ERROR_PIPE_NOT_CONNECTED), Available(old));
        EXPECT_EQ(DWORD{ERROR_PIPE_NOT_CONNECTED}, Write(old, "x", write));
        EXPECT_EQ("(error 233)", Read(old, 10));
    };
    expectDisconnected();
    Transfer connect;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, ErrorOf(ConnectNamedPipe(server, &connect.overlapped)));
    const Handle fresh(OpenClient());
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(server, connect, TRUE));
    expectDisconnected();
    EXPECT_EQ(0, Available(fresh));
    EXPECT_EQ(0, Available(server));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(fresh, "new", write));
    EXPECT_EQ("new", Read(server, 100));
}

TEST_F(Pipes, FlushWaitsForTheReader)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    EXPECT_TRUE(FlushFileBuffers(client));
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "some bytes", transfer));
    const auto start = Clock::now();
    std::string data;
    std::thread reader(
        [&]
        {
            Sleep(50);
            data = Read(server, 4);
            Sleep(50);
            data += Read(server, 100);
        });
    EXPECT_TRUE(FlushFileBuffers(client));
    EXPECT_GE(MillisecondsSince(start), 95);
    EXPECT_EQ(0, Available(server));
    reader.join();
    EXPECT_EQ("some bytes", data);
}

TEST_F(Pipes, FlushEndsWhenTheReaderGoes)
{
    for (const bool closes : {true, false})
    {
        Handle server(CreateServer());
        const Handle client(OpenClient());
        Transfer transfer;
        EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(client, "unread", transfer));
        std::thread leaver(
            [&]
            {
                Sleep(30);
                if (closes)
                {
                    server.Close();
                }
                else
                {
                    DisconnectNamedPipe(server);
                }
            });
        EXPECT_EQ(closes ? DWORD{ERROR_BROKEN_PIPE} : DWORD{ERROR_PIPE_NOT_CONNECTED},
                  ErrorOf(FlushFileBuffers(client)));
        leaver.join();
    }
}

TEST_F(Pipes, SynchronousEndsBlock)
{
    const Handle server(CreateServer(1, 0, quota, PIPE_ACCESS_DUPLEX));
    // More than the quota and more than one read each way.
    std::string sent;
    for (int i = 0; i < 5000; ++i)
    {
        sent += std::to_string(i) + ",";
    }
    std::string received;
    std::thread peer(
        [&]
        {
            const Handle client(OpenClient(GENERIC_READ | GENERIC_WRITE, 0));
            DWORD bytes = 0;
            EXPECT_TRUE(WriteFile(client, sent.data(), static_cast<DWORD>(sent.size()), &bytes, nullptr));
            EXPECT_EQ(sent.size(), bytes);
            char answer = 0;
            EXPECT_TRUE(ReadFile(client, &answer, 1, &bytes, nullptr));
            EXPECT_EQ('!', answer);
        });
    // The client may have come already.
    const DWORD connected = ErrorOf(ConnectNamedPipe(server, nullptr));
    EXPECT_TRUE(connected == ERROR_SUCCESS || connected == ERROR_PIPE_CONNECTED) << connected;
    while (received.size() < sent.size())
    {
        char buffer[700];
        DWORD bytes = 0;
        ASSERT_TRUE(ReadFile(server, buffer, sizeof buffer, &bytes, nullptr));
        received.append(buffer, bytes);
    }
    EXPECT_EQ(sent, received);
    DWORD bytes = 0;
    EXPECT_TRUE(WriteFile(server, "!", 1, &bytes, nullptr));
    peer.join();
    char buffer = 0;
    EXPECT_EQ(DWORD{ERROR_BROKEN_PIPE}, ErrorOf(ReadFile(server, &buffer, 1, &bytes, nullptr)));
}

// What is at the other end of the process, until it is killed or told to go on.
SNDX_CHILD(PipeServer)
{
    const Handle server(CreateServer());
    Transfer connect;
    Announce("listening");
    if (ErrorOf(ConnectNamedPipe(server, &connect.overlapped)) == ERROR_IO_PENDING)
    {
        Result(server, connect, TRUE);
    }
    Transfer transfer;
    Write(server, "hello", transfer);
    Announce("written");
    WaitFor("read");
    const std::string data = Read(server, 1000);
    Announce("has read");
    WaitFor("never", 60000);
    return static_cast<int>(data.size());
}

TEST_F(Pipes, PendingWriteAndFlushEndByAnotherProcessReading)
{
    ChildProcess child("PipeServer", {});
    ASSERT_TRUE(WaitFor("listening"));
    const Handle client(OpenClient());
    ASSERT_TRUE(WaitFor("written"));
    EXPECT_EQ("hello", Read(client, 100));
    Transfer transfer;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, std::string(500, 'w'), transfer));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT},
              MsgWaitForMultipleObjects(1, &transfer.overlapped.hEvent, FALSE, 50, QS_ALLINPUT));
    Announce("read");
    EXPECT_EQ(DWORD{WAIT_OBJECT_0},
              MsgWaitForMultipleObjects(1, &transfer.overlapped.hEvent, FALSE, 5000, QS_ALLINPUT));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(client, transfer));
    EXPECT_EQ(DWORD{500}, transfer.bytes);
    EXPECT_TRUE(FlushFileBuffers(client));
}

TEST_F(Pipes, KilledServerEndsEverythingPending)
{
    ChildProcess child("PipeServer", {});
    ASSERT_TRUE(WaitFor("listening"));
    const Handle client(OpenClient());
    ASSERT_TRUE(WaitFor("written"));
    Transfer write;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, Write(client, std::string(500, 'w'), write));
    child.Kill();
    EXPECT_EQ(DWORD{ERROR_BROKEN_PIPE}, Result(client, write, TRUE));
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, Write(client, "x", write));
    EXPECT_EQ("hello", Read(client, 100));
    EXPECT_EQ(-static_cast<long>(ERROR_BROKEN_PIPE), Available(client));
    EXPECT_EQ(INVALID_HANDLE_VALUE, OpenClient());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, GetLastError());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, ErrorOf(WaitNamedPipeW(pipeName, 1000)));
    const Handle server(CreateServer());
    EXPECT_TRUE(server.IsOpen());
    EXPECT_EQ(-static_cast<long>(ERROR_BROKEN_PIPE), Available(client))
        << "the new server is not the old one";
}

SNDX_CHILD(PipeClient)
{
    const Handle client(OpenClient());
    Transfer fitting;
    Transfer pending;
    const bool right = Write(client, "fits", fitting) == ERROR_SUCCESS &&
                       Write(client, std::string(100, 'p'), pending) == ERROR_IO_PENDING;
    Announce(right ? "written" : "failed");
    WaitFor("never", 60000);
    return 0;
}

TEST_F(Pipes, KilledClientLeavesOnlyCompleteWrites)
{
    const Handle server(CreateServer());
    ChildProcess child("PipeClient", {});
    ASSERT_TRUE(WaitFor("written"));
    child.Kill();
    EXPECT_EQ(4, Available(server));
    EXPECT_EQ("fits", Read(server, 1000));
    EXPECT_EQ("(error 109)", Read(server, 1000));
    EXPECT_TRUE(DisconnectNamedPipe(server));
    Transfer connect;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING}, ErrorOf(ConnectNamedPipe(server, &connect.overlapped)));
    const Handle client(OpenClient());
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Result(server, connect, TRUE));
}

TEST_F(Pipes, PendingReadEndsWhenTheClientIsKilled)
{
    const Handle server(CreateServer());
    ChildProcess child("PipeClient", {});
    ASSERT_TRUE(WaitFor("written"));
    EXPECT_EQ("fits" + std::string(100, 'p'), Read(server, 1000));
    char buffer[8];
    Transfer read;
    EXPECT_EQ(DWORD{ERROR_IO_PENDING},
              ErrorOf(ReadFile(server, buffer, sizeof buffer, &read.bytes, &read.overlapped)));
    child.Kill();
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(read.event, 5000));
    EXPECT_EQ(DWORD{ERROR_BROKEN_PIPE}, Result(server, read));
}
} // namespace
