#include "tools/mainprogram/server.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "tools/mainprogram/requestreader.h"
#include "tools/text.h"

namespace sndxtools
{
namespace
{
[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what + ": error " + std::to_string(GetLastError()));
}
} // namespace

PipeServer::PipeServer(const MainProgramOptions& options, Output& output) : options_(options), output_(output)
{
    done_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (done_ == nullptr)
    {
        Fail("cannot make an event");
    }
    const WideString path = Wide("\\\\.\\pipe\\" + options.pipeName);
    for (DWORD i = 0; i < options.instances && !options.noPipe; ++i)
    {
        const HANDLE instance = CreateNamedPipeW(
            path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT,
            options.instances, options.buffer, options.buffer, options.defaultTimeout, nullptr);
        if (instance == INVALID_HANDLE_VALUE)
        {
            Fail("cannot make the pipe '" + options.pipeName + "'");
        }
        instances_.push_back(instance);
        if (options.busy)
        {
            const HANDLE client = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                              OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
            if (client == INVALID_HANDLE_VALUE)
            {
                Fail("cannot hold an instance of the pipe '" + options.pipeName + "'");
            }
            ownClients_.push_back(client);
        }
    }
}

void PipeServer::Start() noexcept
{
    if (options_.busy)
    {
        return; // The own clients send nothing and never leave.
    }
    for (const HANDLE instance : instances_)
    {
        std::thread([this, instance] { Serve(instance); }).detach();
    }
}

void PipeServer::Serve(HANDLE instance)
{
    for (;;)
    {
        // Blocks until a client comes; the program's duration is the bound. ERROR_NO_DATA: the client came
        // and went before; what it wrote can still be read.
        if (!ConnectNamedPipe(instance, nullptr))
        {
            const DWORD error = GetLastError();
            if (error != ERROR_PIPE_CONNECTED && error != ERROR_NO_DATA)
            {
                output_.Text("a pipe instance failed: error " + std::to_string(error) + "\n");
                return;
            }
        }
        const std::string label = "connection " + std::to_string(++opened_);
        output_.Text(label + ": opened\n");
        ServeConnection(instance, label);
        DisconnectNamedPipe(instance);
        if (options_.requests && ++served_ >= *options_.requests)
        {
            SetEvent(done_);
        }
    }
}

void PipeServer::ServeConnection(HANDLE instance, const std::string& label)
{
    if (options_.neverRead)
    {
        // The connection stays open until the program ends.
        for (;;)
        {
            Sleep(options_.duration);
        }
    }
    Sleep(options_.readAfter);
    if (options_.flood)
    {
        const std::vector<unsigned char> words(options_.buffer, 0x55);
        DWORD written = 0;
        WriteFile(instance, words.data(), options_.buffer, &written, nullptr); // fits, so it ends at once
    }

    RequestReader reader;
    std::uint64_t left =
        options_.closeEarly ? *options_.closeEarly : std::numeric_limits<std::uint64_t>::max();
    std::string reason = "closed by the sender";
    std::string unfinished;
    for (;;)
    {
        if (left == 0)
        {
            reason = "closed early";
            break;
        }
        unsigned char bytes[8192];
        const auto most = static_cast<DWORD>(std::min<std::uint64_t>(left, sizeof bytes));
        DWORD count = 0;
        // Blocks until something comes or the sender goes; bounded as above.
        if (!ReadFile(instance, bytes, most, &count, nullptr))
        {
            const DWORD error = GetLastError();
            if (error != ERROR_BROKEN_PIPE)
            {
                reason = "failed with error " + std::to_string(error);
            }
            unfinished = reader.End();
            break;
        }
        left -= count;
        output_.Raw(bytes, count);
        output_.Text(reader.Feed(bytes, count));
    }
    output_.Text(unfinished + label + ": " + reason + ", bytes " + std::to_string(reader.Bytes()) +
                 ", messages " + std::to_string(reader.Messages()) + ", faults " +
                 std::to_string(reader.Faults()) + "\n");
}
} // namespace sndxtools
