// Processes and their modules, from /proc.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include <unistd.h>

#include "posix/base/handles.h"
#include "posix/files/paths.h"
#include "posix/text/charsets.h"
#include "sndx/snapshots.h"

namespace fs = std::filesystem;

namespace sndxposix
{
namespace
{
template <class Entry>
struct SnapshotObject : public KernelObject
{
    std::vector<Entry> entries;
    std::size_t next = 0;
};

template <std::size_t size>
void CopyName(WCHAR (&target)[size], const std::u16string& name)
{
    target[name.copy(target, size - 1)] = 0;
}

// Whether the process was started for the root folder of this one.
bool IsOfThisMachine(const fs::path& process)
{
    const char* const own = std::getenv("SENDORA_ROOT");
    std::ifstream environment(process / "environ");
    std::string root;
    for (std::string variable; std::getline(environment, variable, '\0');)
    {
        root = variable.starts_with("SENDORA_ROOT=") ? variable : root;
    }
    return process.filename() == std::to_string(getpid()) ||
           (environment.eof() && root == (own == nullptr ? "" : std::string("SENDORA_ROOT=") + own));
}

std::vector<PROCESSENTRY32W> ListProcesses()
{
    std::vector<PROCESSENTRY32W> entries;
    std::error_code error;
    for (auto process = fs::directory_iterator("/proc", error); process != fs::directory_iterator();
         process.increment(error))
    {
        const std::string number = process->path().filename();
        if (number.find_first_not_of("0123456789") == number.npos && IsOfThisMachine(process->path()))
        {
            PROCESSENTRY32W& entry = entries.emplace_back();
            entry.th32ProcessID = static_cast<DWORD>(std::strtoul(number.c_str(), nullptr, 10));
            const fs::path program = fs::read_symlink(process->path() / "exe", error);
            CopyName(entry.szExeFile, Utf16(program.filename().native()));
        }
    }
    return entries;
}

std::vector<MODULEENTRY32W> ListModules(DWORD process)
{
    std::vector<MODULEENTRY32W> entries;
    std::set<std::string> seen;
    const DWORD number = process == 0 ? static_cast<DWORD>(getpid()) : process;
    std::ifstream maps("/proc/" + std::to_string(number) + "/maps");
    // "7f12a000-7f12b000 r-xp 00000000 08:01 1234   /path", behind the path of a file without a name "
    // (deleted)"
    for (std::string line; std::getline(maps, line);)
    {
        const std::size_t start = line.find('/');
        const bool isCode = start != line.npos && line.find(" r-x") < start;
        const std::string path = isCode ? line.substr(start, line.rfind(" (deleted)") - start) : "";
        if (isCode && seen.insert(path).second)
        {
            MODULEENTRY32W& entry = entries.emplace_back();
            entry.th32ProcessID = number;
            CopyName(entry.szModule, Utf16(path.substr(path.rfind('/') + 1)));
            CopyName(entry.szExePath, ToWindowsPath(path));
        }
    }
    return entries;
}

template <class Entry>
HANDLE Insert(std::vector<Entry> entries)
{
    const auto snapshot = std::make_shared<SnapshotObject<Entry>>();
    snapshot->entries = std::move(entries);
    return InsertHandle(snapshot);
}

template <class Entry>
BOOL Take(const char* function, bool first, HANDLE handle, Entry* entry)
{
    const auto snapshot = LookupHandleFor<SnapshotObject<Entry>>(function, handle);
    if (!snapshot || entry->dwSize != sizeof(Entry))
    {
        return snapshot && FailWith(ERROR_INVALID_PARAMETER);
    }
    snapshot->next = first ? 0 : snapshot->next;
    if (snapshot->next == snapshot->entries.size())
    {
        return FailWith(ERROR_NO_MORE_FILES);
    }
    *entry = snapshot->entries[snapshot->next++];
    entry->dwSize = sizeof(Entry);
    return TRUE;
}
} // namespace

extern "C" HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD process)
{
    const auto body = [&]() -> HANDLE
    {
        if (flags == TH32CS_SNAPPROCESS)
        {
            return Insert(ListProcesses());
        }
        const std::vector<MODULEENTRY32W> modules = ListModules(process);
        const bool exists = fs::exists("/proc/" + std::to_string(process));
        return flags != TH32CS_SNAPMODULE || modules.empty()
                   ? FailWith(exists ? ERROR_ACCESS_DENIED : ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE)
                   : Insert(modules);
    };
    return Call("CreateToolhelp32Snapshot", INVALID_HANDLE_VALUE, body);
}

extern "C" BOOL WINAPI Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry)
{
    return Take("Process32FirstW", true, snapshot, entry);
}

extern "C" BOOL WINAPI Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry)
{
    return Take("Process32NextW", false, snapshot, entry);
}

extern "C" BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return Take("Module32FirstW", true, snapshot, entry);
}

extern "C" BOOL WINAPI Module32NextW(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return Take("Module32NextW", false, snapshot, entry);
}
} // namespace sndxposix
