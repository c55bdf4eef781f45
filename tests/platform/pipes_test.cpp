// Both ends of named pipes: opening, quotas, pending and cancelled transfers, and the ends of connections.

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"
#include "tests/support/child.h"

namespace
{
using namespace sndxtest;

constexpr WCHAR pipeName[] = TEXT("\\\\.\\pipe\\sndxtest pipe");

// One instance with a quota of 64 bytes and a time-out of 400 ms.
HANDLE CreateServer()
{
    return CreateNamedPipeW(pipeName, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED, PIPE_TYPE_BYTE, 1, 64, 64,
                            400, nullptr);
}

HANDLE OpenClient()
{
    return CreateFileW(pipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

// One overlapped transfer with its event.
struct Transfer
{
    Transfer() { overlapped.hEvent = event; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    Handle event{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    OVERLAPPED overlapped{};
    DWORD bytes = 0;
};

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
    return data.substr(0, transfer.bytes);
}

// Number of unread bytes, or the error as a negative number.
long Available(HANDLE pipe)
{
    DWORD available = 0;
    return PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) ? static_cast<long>(available)
                                                                         : -static_cast<long>(GetLastError());
}
constexpr long broken = -long{ERROR_BROKEN_PIPE};

class Pipes : public ::testing::Test
{
  protected:
    Transfer transfer;
    Transfer pending;
};

TEST_F(Pipes, WriteBeyondTheQuotaPendsUntilReadOrCancelled)
{
    const Handle server(CreateServer());
    const Handle client(OpenClient());
    EXPECT_EQ(Write(client, "", transfer), ERROR_SUCCESS) << "nothing to deliver";
    EXPECT_EQ(Write(client, std::string(64, 'a'), transfer), ERROR_SUCCESS);
    EXPECT_EQ(Write(client, "cc", pending), ERROR_IO_PENDING);
    EXPECT_EQ(Read(server, 1), "a");
    EXPECT_EQ(Result(client, pending, FALSE), ERROR_IO_INCOMPLETE) << "a part of it fits";
    EXPECT_EQ(Read(server, 1), "a");
    EXPECT_EQ(Result(client, pending), ERROR_SUCCESS);
    EXPECT_EQ(Read(server), std::string(62, 'a') + "cc");
    // The same record serves again, and a part that was read cannot be taken back.
    EXPECT_EQ(Write(client, "0123456789" + std::string(64, 'c'), pending), ERROR_IO_PENDING);
    EXPECT_EQ(Read(server, 4), "0123");
    EXPECT_TRUE(CancelIo(client));
    EXPECT_EQ(Result(client, pending), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(Available(server), 0);
}

TEST_F(Pipes, AfterTheServerHasClosedTheRestCanBeRead)
{
    Handle server(CreateServer());
    const Handle client(OpenClient());
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

TEST_F(Pipes, FlushEndsWhenTheReaderHasReadOrGone)
{
    const DWORD errors[] = {ERROR_SUCCESS, ERROR_BROKEN_PIPE, ERROR_PIPE_NOT_CONNECTED};
    for (int way = 0; way < 3; ++way)
    {
        Handle server(CreateServer());
        const Handle client(OpenClient());
        EXPECT_EQ(Write(client, "unread", transfer), ERROR_SUCCESS);
        const Stopwatch time;
        std::thread reader(
            [&]
            {
                Sleep(30);
                way == 0   ? static_cast<void>(Read(server))
                : way == 1 ? server.Close()
                           : static_cast<void>(DisconnectNamedPipe(server));
            });
        EXPECT_EQ(ErrorOf(FlushFileBuffers(client)), errors[way]);
        EXPECT_GE(time.Milliseconds(), 25);
        reader.join();
    }
}

// Writes something to its client, then waits to be killed.
SNDX_CHILD(PipeServer)
{
    const Handle end(CreateServer());
    Announce("listening");
    Transfer transfer;
    if (ErrorOf(ConnectNamedPipe(end, &transfer.overlapped)) == ERROR_IO_PENDING)
    {
        Result(end, transfer);
    }
    Announce(Write(end, "fits", transfer) == ERROR_SUCCESS ? "written" : "failed");
    return WaitFor("never", 60000);
}

TEST_F(Pipes, KillingTheServerEndsEverythingPending)
{
    ClearPoints();
    ChildProcess child("PipeServer", {});
    ASSERT_TRUE(WaitFor("listening"));
    const Handle client(OpenClient());
    ASSERT_TRUE(WaitFor("written"));
    EXPECT_EQ(Write(client, std::string(500, 'w'), pending), ERROR_IO_PENDING);
    child.Kill();
    EXPECT_EQ(Result(client, pending), ERROR_BROKEN_PIPE);
    EXPECT_EQ(Write(client, "x", transfer), ERROR_NO_DATA);
    EXPECT_EQ(Read(client), "fits");
    EXPECT_EQ(ErrorOf(OpenClient()), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOf(WaitNamedPipeW(pipeName, 1000)), ERROR_FILE_NOT_FOUND);
    const Handle server(CreateServer());
    EXPECT_TRUE(server.IsOpen());
    EXPECT_EQ(Available(client), broken) << "the new server is not the old one";
}

} // namespace
