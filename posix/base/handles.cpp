// The process's table of handles.

#include "posix/base/handles.h"

#include <utility>
#include <vector>

#include "posix/base/locked.h"

namespace sndxposix
{
namespace
{
// Entry i has the handle value 4 * (i + 1). Values of closed handles are used again, the last one first,
// as Windows does: a program that goes on using a closed handle must meet another object some day.
struct HandleTable
{
    std::vector<std::shared_ptr<KernelObject>> entries;
    std::vector<std::size_t> free;

    // The entry of a handle, null for one that is not open.
    std::shared_ptr<KernelObject>* Find(HANDLE handle)
    {
        const auto value = reinterpret_cast<std::uintptr_t>(handle);
        const bool isOpen = value % 4 == 0 && value != 0 && value / 4 <= entries.size();
        return isOpen && entries[value / 4 - 1] ? &entries[value / 4 - 1] : nullptr;
    }
};
} // namespace

HANDLE InsertHandle(std::shared_ptr<KernelObject> object)
{
    const Locked<HandleTable> table;
    std::size_t index = table->entries.size();
    if (table->free.empty())
    {
        table->entries.push_back(std::move(object));
    }
    else
    {
        index = table->free.back();
        table->free.pop_back();
        table->entries[index] = std::move(object);
    }
    CountLive(1);
    return reinterpret_cast<HANDLE>((index + 1) * 4);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE handle)
{
    const Locked<HandleTable> table;
    const auto* const entry = table->Find(handle);
    return entry == nullptr ? FailWith(ERROR_INVALID_HANDLE, nullptr) : *entry;
}

bool RemoveHandle(HANDLE handle)
{
    std::shared_ptr<KernelObject> last; // dies after the lock is gone: its destructor may take other locks
    const Locked<HandleTable> table;
    auto* const entry = table->Find(handle);
    if (entry != nullptr)
    {
        last.swap(*entry);
        table->free.push_back(static_cast<std::size_t>(entry - table->entries.data()));
        CountLive(-1);
    }
    return entry != nullptr;
}

extern "C" BOOL WINAPI CloseHandle(HANDLE handle)
{
    // The pseudo handle of the current process has the same value; closing it is a successful nothing.
    const bool closed =
        handle == INVALID_HANDLE_VALUE || RemoveHandle(handle) || FailWith(ERROR_INVALID_HANDLE);
    return !FailNextCall("CloseHandle") && closed;
}
} // namespace sndxposix
