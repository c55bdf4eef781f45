// The system's message texts.

#include <algorithm>
#include <iterator>
#include <string_view>

#include "posix/base/call.h"
#include "sndx/text.h"

namespace sndxposix
{
namespace
{
struct Message
{
    DWORD code;
    std::u16string_view text; // without its CR LF
};

constexpr Message messages[] = {
    {ERROR_SUCCESS, u"The operation succeeded."},
    {ERROR_FILE_NOT_FOUND, u"The file does not exist."},
    {ERROR_PATH_NOT_FOUND, u"The folder does not exist."},
    {ERROR_ACCESS_DENIED, u"Access was refused."},
    {ERROR_INVALID_HANDLE, u"The handle is not valid."},
    {ERROR_NOT_ENOUGH_MEMORY, u"There is not enough memory for this operation."},
    {ERROR_GEN_FAILURE, u"A device does not work."},
    {ERROR_SHARING_VIOLATION, u"Another program has the file open."},
    {ERROR_INVALID_PARAMETER, u"A parameter is wrong."},
    {ERROR_BROKEN_PIPE, u"The other end of the pipe has been closed."},
    {ERROR_DISK_FULL, u"The disk is full."},
    {ERROR_SEM_TIMEOUT, u"The time for waiting is over."},
    {ERROR_INVALID_NAME, u"The name is not valid."},
    {ERROR_ALREADY_EXISTS, u"There is already something with this name."},
    {ERROR_PIPE_BUSY, u"All instances of the pipe are in use."},
    {ERROR_NO_DATA, u"The pipe is being closed."},
    {ERROR_PIPE_NOT_CONNECTED, u"There is no process at the other end of the pipe."},
    {ERROR_NOT_OWNER, u"The object belongs to another thread."},
    {ERROR_INVALID_ADDRESS, u"The address is not valid."},
    {ERROR_PIPE_CONNECTED, u"There is a process at the other end of the pipe."},
    {ERROR_PIPE_LISTENING, u"The pipe waits for a process at its other end."},
    {ERROR_OPERATION_ABORTED, u"The transfer was cancelled."},
    {ERROR_IO_INCOMPLETE, u"The transfer has not ended."},
    {ERROR_IO_PENDING, u"The transfer goes on."},
    {ERROR_NOACCESS, u"Memory cannot be accessed there."},
};

std::u16string_view FindMessage(DWORD code)
{
    const auto found = std::find_if(std::begin(messages), std::end(messages),
                                    [&](const Message& message) { return message.code == code; });
    return found == std::end(messages) ? std::u16string_view() : found->text;
}
} // namespace

extern "C" DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID /*source*/, DWORD code, DWORD /*language*/,
                                       LPWSTR buffer, DWORD size, va_list* /*arguments*/)
{
    if (FailNextCall("FormatMessageW", {reinterpret_cast<LPWSTR*>(buffer)}))
    {
        return 0;
    }
    constexpr DWORD required =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (buffer == nullptr || (flags & required) != required)
    {
        return FailWith(ERROR_INVALID_PARAMETER, DWORD{0});
    }
    const std::u16string_view text = FindMessage(code);
    if (text.empty())
    {
        return FailWith(ERROR_MR_MID_NOT_FOUND, DWORD{0});
    }
    // size is the least number of units of the block.
    const std::size_t units = std::max<std::size_t>(text.size() + 3, size);
    auto* const block = static_cast<LPWSTR>(GlobalAlloc(GMEM_FIXED, units * sizeof(WCHAR)));
    *reinterpret_cast<LPWSTR*>(buffer) = block;
    if (block == nullptr)
    {
        return 0;
    }
    const std::size_t length = text.copy(block, text.size());
    constexpr std::u16string_view end = u"\r\n";
    block[length + end.copy(block + length, end.size())] = 0;
    return static_cast<DWORD>(length + end.size());
}
} // namespace sndxposix
