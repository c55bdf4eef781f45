// Both ends of named pipes: opening, quotas, pending and cancelled transfers, and the ends of connections.

#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/platform/handle.h"
#include "tests/support/child.h"

namespace
{
using namespace sndxtest;

constexpr WCHAR pipeName[] = TEXT("\\\\.\\pipe\\sndxtest pipe");
constexpr DWORD quota = 64;

HANDLE CreateServer(DWORD instances = 1, DWORD timeout = 200, DWORD size = quota,
                    DWORD mode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED)
{
    return CreateNamedPipeW(pipeName, mode, PIPE_TYPE_BYTE, instances, size, size, timeout, nullptr);
}

HANDLE OpenClient(DWORD flags = FILE_FLAG_OVERLAPPED)
{
    return CreateFileW(pipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, flags, nullptr);
}

// One overlapped transfer with its event.
struct Transfer
{
    Transfer() { overlapped.hEvent = event; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    DWORD Wait(DWORD milliseconds) const { return WaitForSingleObject(event, milliseconds); }

    Handle event{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    OVERLAPPED overlapped{};
    DWORD bytes = 0;
};

DWORD Connect(HANDLE server, Transfer& transfer)
{
    return ErrorOf(ConnectNamedPipe(server, &transfer.overlapped));
}

DWORD Write(HANDLE pipe, const std::string& data, Transfer& transfer)
{
    return ErrorOf(
        WriteFile(pipe, data.data(), static_cast<DWORD>(data.size()), &transfer.bytes, &transfer.overlapped));
}

DWORD Result(HANDLE pipe, Transfer& transfer, BOOL wait = TRUE)
{
    return ErrorOf(GetOverlappedResult(pipe, &transfer.overlapped, &transfer.bytes, wait));
}

// Reads what is there, at most size bytes; waits for at least one.
std::string Read(HANDLE pipe, DWORD size = 1000)
{
    std::string data(size, '\0');
    Transfer transfer;
    if (!ReadFile(pipe, data.data(), size, &transfer.bytes, &transfer.overlapped) &&
        (GetLastError() != ERROR_IO_PENDING || Result(pipe, transfer) != ERROR_SUCCESS))
    {
        return "error " + std::to_string(GetLastError());
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
constexpr long broken = -long{ERROR_BROKEN_PIPE};
constexpr long notConnected = -long{ERROR_PIPE_NOT_CONNECTED};

class Pipes : public ::testing::Test
{
  protected:
    Pipes() { ClearPoints(); }
};

// Most tests have one instance and its client.
class ConnectedPipe : public Pipes
{
  protected:
    Handle server{CreateServer()};
    Handle client{OpenClient()};
    Transfer transfer;
};

TEST_F(Pipes, AbsentPipeIsNotFoundAtOnce)
{
    const Stopwatch time;
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOf(WaitNamedPipeW(pipeName, 5000)), ERROR_FILE_NOT_FOUND);
    EXPECT_LT(time.Milliseconds(), 1000);
}

TEST_F(Pipes, ClientOpensBeforeOrAfterTheServerListens)
{
    const Handle server(CreateServer());
    EXPECT_TRUE(WaitNamedPipeW(pipeName, 1000));
    Handle client(CreateFileW(TEXT("\\\\.\\PIPE\\SNDXTEST pipe"), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    ASSERT_TRUE(client.IsOpen());
    Transfer connect;
    EXPECT_EQ(Connect(server, connect), ERROR_PIPE_CONNECTED);
    Transfer transfer;
    EXPECT_EQ(Write(client, "question", transfer), ERROR_SUCCESS);
    EXPECT_EQ(transfer.bytes, 8u);
    EXPECT_EQ(transfer.Wait(0), WAIT_OBJECT_0);
    EXPECT_EQ(Write(server, "answer", transfer), ERROR_SUCCESS);
    EXPECT_EQ(Available(server), 8);
    EXPECT_EQ(Read(server), "question");
    EXPECT_EQ(Read(client, 3), "ans");
    EXPECT_EQ(Read(client), "wer");

    client.Close();
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(Connect(server, connect), ERROR_IO_PENDING);
    EXPECT_EQ(connect.Wait(0), WAIT_TIMEOUT);
    EXPECT_EQ(Result(server, connect, FALSE), ERROR_IO_INCOMPLETE);
    const Handle next(OpenClient());
    EXPECT_EQ(connect.Wait(5000), WAIT_OBJECT_0);
    EXPECT_EQ(Result(server, connect), ERROR_SUCCESS);
}

TEST_F(Pipes, BusyPipeWaitsAsLongAsAskedOrAsTheServerSays)
{
    const Handle server(CreateServer(1, 400));
    const Handle client(OpenClient());
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_PIPE_BUSY);
    EXPECT_EQ(ErrorOf(CreateServer()), ERROR_PIPE_BUSY);
    const struct
    {
        DWORD asked;
        long long least;
        long long most;
    } cases[] = {{NMPWAIT_USE_DEFAULT_WAIT, 390, 1500}, {40, 35, 390}};
    for (const auto& each : cases)
    {
        const Stopwatch time;
        EXPECT_EQ(ErrorOf(WaitNamedPipeW(pipeName, each.asked)), ERROR_SEM_TIMEOUT);
        EXPECT_GE(time.Milliseconds(), each.least);
        EXPECT_LT(time.Milliseconds(), each.most);
    }
}

TEST_F(ConnectedPipe, BusyPipeThatGetsFreeEndsTheWait)
{
    std::thread freeing(
        [&]
        {
            Sleep(50);
            client.Close();
            EXPECT_TRUE(DisconnectNamedPipe(server));
            EXPECT_EQ(Connect(server, transfer), ERROR_IO_PENDING);
            EXPECT_EQ(Result(server, transfer), ERROR_SUCCESS);
        });
    EXPECT_TRUE(WaitNamedPipeW(pipeName, NMPWAIT_WAIT_FOREVER));
    const Handle second(OpenClient());
    EXPECT_TRUE(second.IsOpen());
    freeing.join();
    EXPECT_EQ(Write(second, "again", transfer), ERROR_SUCCESS);
    EXPECT_EQ(Read(server), "again");
}

TEST_F(ConnectedPipe, WriteBeyondTheQuotaPendsUntilRead)
{
    Transfer third;
    EXPECT_EQ(Write(client, std::string(16, 'a'), transfer), ERROR_SUCCESS);
    EXPECT_EQ(Write(client, std::string(48, 'b'), transfer), ERROR_SUCCESS);
    EXPECT_EQ(Write(client, "c", third), ERROR_IO_PENDING);
    EXPECT_EQ(third.Wait(0), WAIT_TIMEOUT);
    EXPECT_EQ(Result(client, third, FALSE), ERROR_IO_INCOMPLETE);
    EXPECT_EQ(Read(server, 17), std::string(16, 'a') + "b");
    EXPECT_EQ(third.Wait(5000), WAIT_OBJECT_0);
    EXPECT_EQ(Result(client, third), ERROR_SUCCESS);
    EXPECT_EQ(third.bytes, 1u);
    EXPECT_EQ(Read(server), std::string(47, 'b') + "c");
    EXPECT_EQ(Available(server), 0);
}

TEST_F(Pipes, WithoutQuotaEveryWritePendsUntilRead)
{
    const Handle server(CreateServer(1, 0, 0));
    const Handle client(OpenClient());
    Transfer transfer;
    EXPECT_EQ(Write(client, "", transfer), ERROR_SUCCESS) << "nothing to deliver";
    EXPECT_EQ(Write(client, "xy", transfer), ERROR_IO_PENDING);
    EXPECT_EQ(Read(server, 1), "x");
    EXPECT_EQ(Result(client, transfer, FALSE), ERROR_IO_INCOMPLETE);
    EXPECT_EQ(Read(server, 1), "y");
    EXPECT_EQ(Result(client, transfer), ERROR_SUCCESS);
    EXPECT_EQ(transfer.bytes, 2u);
}

TEST_F(ConnectedPipe, CancelledWriteLeavesNothing)
{
    Transfer pending;
    EXPECT_EQ(Write(client, std::string(quota, 'a'), transfer), ERROR_SUCCESS);
    EXPECT_EQ(Write(client, std::string(1000, 'b'), pending), ERROR_IO_PENDING);
    EXPECT_TRUE(CancelIo(client));
    EXPECT_EQ(Result(client, pending), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(pending.bytes, 0u);
    EXPECT_EQ(pending.Wait(0), WAIT_OBJECT_0);
    EXPECT_EQ(Available(server), long{quota});

    // The same record serves again, and a part that was read cannot be taken back.
    EXPECT_EQ(Read(server), std::string(quota, 'a'));
    EXPECT_EQ(Write(client, "0123456789" + std::string(quota, 'c'), pending), ERROR_IO_PENDING);
    EXPECT_EQ(Read(server, 4), "0123");
    EXPECT_TRUE(CancelIo(client));
    EXPECT_EQ(Result(client, pending), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(Available(server), 0);
    EXPECT_EQ(Write(client, "next", pending), ERROR_SUCCESS);
    EXPECT_EQ(Read(server), "next");
}

TEST_F(ConnectedPipe, AfterTheServerHasClosedTheRestCanBeRead)
{
    EXPECT_EQ(Write(server, "rest", transfer), ERROR_SUCCESS);
    server.Close();
    EXPECT_EQ(Available(client), 4);
    EXPECT_EQ(Write(client, "x", transfer), ERROR_NO_DATA);
    EXPECT_EQ(Read(client), "rest");
    EXPECT_EQ(Available(client), broken);
    EXPECT_EQ(Read(client), "error 109");
    EXPECT_TRUE(FlushFileBuffers(client));
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_FILE_NOT_FOUND);
}

TEST_F(ConnectedPipe, AfterTheClientHasClosedTheServerDisconnects)
{
    EXPECT_EQ(Write(client, "rest", transfer), ERROR_SUCCESS);
    client.Close();
    EXPECT_EQ(Connect(server, transfer), ERROR_NO_DATA);
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_PIPE_BUSY);
    EXPECT_EQ(Read(server), "rest");
    EXPECT_EQ(Read(server), "error 109");
    EXPECT_EQ(Available(server), broken);
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_PIPE_BUSY) << "not listening again yet";
}

TEST_F(ConnectedPipe, DisconnectLosesWhatIsUnreadAndTellsTheOldClient)
{
    Transfer pending;
    EXPECT_EQ(Write(server, "lost", transfer), ERROR_SUCCESS);
    EXPECT_EQ(Write(client, std::string(100, 'p'), pending), ERROR_IO_PENDING);
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(Result(client, pending), ERROR_PIPE_NOT_CONNECTED);
    Transfer connect;
    EXPECT_EQ(Connect(server, connect), ERROR_IO_PENDING);
    const Handle fresh(OpenClient());
    EXPECT_EQ(Result(server, connect), ERROR_SUCCESS);
    EXPECT_EQ(Available(client), notConnected);
    EXPECT_EQ(Write(client, "x", transfer), ERROR_PIPE_NOT_CONNECTED);
    EXPECT_EQ(Read(client), "error 233");
    EXPECT_EQ(Available(fresh), 0);
    EXPECT_EQ(Write(fresh, "new", transfer), ERROR_SUCCESS);
    EXPECT_EQ(Read(server), "new");
}

TEST_F(ConnectedPipe, FlushWaitsForTheReader)
{
    EXPECT_TRUE(FlushFileBuffers(client));
    EXPECT_EQ(Write(client, "some bytes", transfer), ERROR_SUCCESS);
    const Stopwatch time;
    std::string data;
    std::thread reader(
        [&]
        {
            Sleep(50);
            data = Read(server, 4);
            Sleep(50);
            data += Read(server);
        });
    EXPECT_TRUE(FlushFileBuffers(client));
    EXPECT_GE(time.Milliseconds(), 95);
    reader.join();
    EXPECT_EQ(data, "some bytes");
}

TEST_F(Pipes, FlushEndsWhenTheReaderGoes)
{
    for (const bool closes : {true, false})
    {
        Handle server(CreateServer());
        const Handle client(OpenClient());
        Transfer transfer;
        EXPECT_EQ(Write(client, "unread", transfer), ERROR_SUCCESS);
        std::thread leaver(
            [&]
            {
                Sleep(30);
                closes ? server.Close() : static_cast<void>(DisconnectNamedPipe(server));
            });
        EXPECT_EQ(ErrorOf(FlushFileBuffers(client)), closes ? ERROR_BROKEN_PIPE : ERROR_PIPE_NOT_CONNECTED);
        leaver.join();
    }
}

TEST_F(Pipes, SynchronousEndsBlock)
{
    const Handle server(CreateServer(1, 0, quota, PIPE_ACCESS_DUPLEX));
    const std::string sent(20000, 's'); // far more than the quota and than one read
    std::thread peer(
        [&]
        {
            const Handle client(OpenClient(0));
            DWORD bytes = 0;
            EXPECT_TRUE(WriteFile(client, sent.data(), static_cast<DWORD>(sent.size()), &bytes, nullptr));
            EXPECT_EQ(bytes, sent.size());
            char answer = 0;
            EXPECT_TRUE(ReadFile(client, &answer, 1, &bytes, nullptr));
            EXPECT_EQ(answer, '!');
        });
    // The client may have come already.
    const DWORD connected = ErrorOf(ConnectNamedPipe(server, nullptr));
    EXPECT_TRUE(connected == ERROR_SUCCESS || connected == ERROR_PIPE_CONNECTED) << connected;
    std::string received;
    char buffer[700];
    DWORD bytes = 0;
    while (received.size() < sent.size() && ReadFile(server, buffer, sizeof buffer, &bytes, nullptr))
    {
        received.append(buffer, bytes);
    }
    EXPECT_EQ(received, sent);
    EXPECT_TRUE(WriteFile(server, "!", 1, &bytes, nullptr));
    peer.join();
    EXPECT_EQ(ErrorOf(ReadFile(server, buffer, 1, &bytes, nullptr)), ERROR_BROKEN_PIPE);
}

// Writes, and reads once it is told to; then waits to be killed.
SNDX_CHILD(PipeServer)
{
    const Handle server(CreateServer());
    Transfer transfer;
    Announce("listening");
    if (Connect(server, transfer) == ERROR_IO_PENDING)
    {
        Result(server, transfer);
    }
    Write(server, "hello", transfer);
    Announce("written");
    WaitFor("read");
    Read(server);
    return WaitFor("never", 60000);
}

class PipeOfAnotherProcess : public Pipes
{
  protected:
    ChildProcess child{"PipeServer", {}};
    const bool listening = WaitFor("listening");
    const Handle client{OpenClient()};
    const bool written = WaitFor("written");
    Transfer write;
};

TEST_F(PipeOfAnotherProcess, PendingWriteAndFlushEndByItsReading)
{
    EXPECT_EQ(Read(client), "hello");
    EXPECT_EQ(Write(client, std::string(500, 'w'), write), ERROR_IO_PENDING);
    const auto wait = [&](DWORD milliseconds)
    { return MsgWaitForMultipleObjects(1, &write.overlapped.hEvent, FALSE, milliseconds, QS_ALLINPUT); };
    EXPECT_EQ(wait(50), WAIT_TIMEOUT);
    Announce("read");
    EXPECT_EQ(wait(5000), WAIT_OBJECT_0);
    EXPECT_EQ(Result(client, write, FALSE), ERROR_SUCCESS);
    EXPECT_EQ(write.bytes, 500u);
    EXPECT_TRUE(FlushFileBuffers(client));
}

TEST_F(PipeOfAnotherProcess, KillingItEndsEverythingPending)
{
    EXPECT_EQ(Write(client, std::string(500, 'w'), write), ERROR_IO_PENDING);
    child.Kill();
    EXPECT_EQ(Result(client, write), ERROR_BROKEN_PIPE);
    EXPECT_EQ(Write(client, "x", write), ERROR_NO_DATA);
    EXPECT_EQ(Read(client), "hello");
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOf(WaitNamedPipeW(pipeName, 1000)), ERROR_FILE_NOT_FOUND);
    const Handle server(CreateServer());
    EXPECT_TRUE(server.IsOpen());
    EXPECT_EQ(Available(client), broken) << "the new server is not the old one";
}

SNDX_CHILD(PipeClient)
{
    const Handle client(OpenClient());
    Transfer fitting;
    Transfer pending;
    const bool right = Write(client, "fits", fitting) == ERROR_SUCCESS &&
                       Write(client, std::string(100, 'p'), pending) == ERROR_IO_PENDING;
    Announce(right ? "written" : "failed");
    return WaitFor("never", 60000);
}

TEST_F(Pipes, KilledClientLeavesOnlyCompleteWrites)
{
    const Handle server(CreateServer());
    Transfer transfer;
    ChildProcess first("PipeClient", {});
    ASSERT_TRUE(WaitFor("written"));
    first.Kill();
    EXPECT_EQ(Read(server), "fits");
    EXPECT_EQ(Read(server), "error 109");
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(Connect(server, transfer), ERROR_IO_PENDING);
}
} // namespace
