// The process's table of handles.

#include "posix/internal.h"

#include <mutex>
#include <utility>
#include <vector>

namespace sndxposix
{
namespace
{
// Entry i has the handle value 4 * (i + 1). Values of closed handles are used again, the last one first,
// as Windows does: a program that goes on using a closed handle must meet another object some day.
struct HandleTable
{
    std::mutex mutex;
    std::vector<std::shared_ptr<KernelObject>> entries;
    std::vector<std::size_t> free;
};

// Never destroyed: modules close handles in their static destructors, at the very end of the process.
HandleTable& Table()
{
    static HandleTable& table = *new HandleTable;
    return table;
}

// The entry a handle value stands for, or a number beyond every table.
std::size_t IndexOf(HANDLE handle)
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    return value % 4 == 0 && value != 0 ? value / 4 - 1 : SIZE_MAX;
}
} // namespace

HANDLE InsertHandle(std::shared_ptr<KernelObject> object)
{
    HandleTable& table = Table();
    const std::lock_guard lock(table.mutex);
    std::size_t index = table.entries.size();
    if (table.free.empty())
    {
        table.entries.push_back(std::move(object));
    }
    else
    {
        index = table.free.back();
        table.free.pop_back();
        table.entries[index] = std::move(object);
    }
    return reinterpret_cast<HANDLE>((index + 1) * 4);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE handle)
{
    HandleTable& table = Table();
    const std::size_t index = IndexOf(handle);
    {
        const std::lock_guard lock(table.mutex);
        if (index < table.entries.size() && table.entries[index])
        {
            return table.entries[index];
        }
    }
    return FailWith(ERROR_INVALID_HANDLE, nullptr);
}

bool RemoveHandle(HANDLE handle)
{
    HandleTable& table = Table();
    const std::size_t index = IndexOf(handle);
    std::shared_ptr<KernelObject> last; // dies after the lock is gone: its destructor may take other locks
    const std::lock_guard lock(table.mutex);
    if (index >= table.entries.size() || !table.entries[index])
    {
        return false;
    }
    last = std::exchange(table.entries[index], nullptr);
    table.free.push_back(index);
    return true;
}
} // namespace sndxposix

namespace
{
thread_local DWORD lastError = ERROR_SUCCESS;
}

extern "C" DWORD WINAPI GetLastError()
{
    return lastError;
}

extern "C" void WINAPI SetLastError(DWORD code)
{
    lastError = code;
}

extern "C" BOOL WINAPI CloseHandle(HANDLE handle)
{
    if (sndxposix::FailNextCall("CloseHandle"))
    {
        return FALSE;
    }
    // The pseudo handle of the current process has the same value; closing it is a successful nothing.
    if (handle == INVALID_HANDLE_VALUE)
    {
        return TRUE;
    }
    return sndxposix::RemoveHandle(handle) || sndxposix::FailWith(ERROR_INVALID_HANDLE);
}
