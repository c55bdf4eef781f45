// Sections: memory that processes share by name, and its views.

#include <map>

#include <sys/mman.h>
#include <unistd.h>

#include "posix/base/handles.h"
#include "posix/base/locked.h"
#include "posix/sync/namedobjects.h"
#include "sndx/sync.h"

namespace sndxposix
{
namespace
{
// A section's file: locks, kind and size in the first page, the memory behind it.
constexpr std::uint64_t headerSize = 4096;

struct SectionObject : public KernelObject
{
    std::unique_ptr<NamedFile> file;
    std::uint64_t size = 0;
};

// Views by address, with their sizes.
using Views = std::map<const void*, std::size_t>;

// size counts for a new section only. Null with the last error set.
std::shared_ptr<SectionObject> Enter(const WCHAR* name, NamedFile::Access access, std::uint64_t size,
                                     bool& existed)
{
    const auto path = NamedObjectPath(name);
    const auto section = std::make_shared<SectionObject>();
    section->file =
        path ? NamedFile::Enter(*path, NamedKind::Section, access, &existed, &size, sizeof size) : nullptr;
    if (!section->file)
    {
        return nullptr;
    }
    // Whoever comes first gives the file its length; a second time changes nothing.
    const int file = section->file->File();
    return ReadAt(file, &section->size, sizeof section->size, objectDataOffset) &&
                   ftruncate(file, static_cast<off_t>(headerSize + section->size)) == 0
               ? section
               : FailWithErrno(nullptr);
}
} // namespace

extern "C" HANDLE WINAPI CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES, DWORD protection,
                                            DWORD sizeHigh, DWORD sizeLow, LPCWSTR name)
{
    const auto body = [&]() -> HANDLE
    {
        const std::uint64_t size = (static_cast<std::uint64_t>(sizeHigh) << 32) | sizeLow;
        if (file != INVALID_HANDLE_VALUE || protection != PAGE_READWRITE || size == 0)
        {
            return FailWith(ERROR_INVALID_PARAMETER, nullptr);
        }
        bool existed = false;
        const auto section = Enter(name, NamedFile::Access::Create, size, existed);
        const HANDLE handle = section ? InsertHandle(section) : nullptr;
        return section ? FailWith(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS, handle) : nullptr;
    };
    return Call("CreateFileMappingW", HANDLE{}, body);
}

extern "C" HANDLE WINAPI OpenFileMappingW(DWORD, BOOL, LPCWSTR name)
{
    bool existed = false;
    const auto section = Enter(name, NamedFile::Access::Open, 0, existed);
    return section ? InsertHandle(section) : nullptr;
}

extern "C" LPVOID WINAPI MapViewOfFile(HANDLE section, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                                       SIZE_T bytes)
{
    const auto object = LookupHandleFor<SectionObject>("MapViewOfFile", section);
    if (!object)
    {
        return nullptr;
    }
    // Sections are whole pages.
    const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const std::uint64_t wholePages = (object->size + page - 1) / page * page;
    if (offsetHigh != 0 || offsetLow != 0)
    {
        return FailWith(ERROR_INVALID_PARAMETER, nullptr);
    }
    if (bytes > wholePages)
    {
        return FailWith(ERROR_ACCESS_DENIED, nullptr);
    }
    const std::size_t size = bytes == 0 ? static_cast<std::size_t>(wholePages) : bytes;
    const int protection = (access & FILE_MAP_WRITE) != 0 ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const view = mmap(nullptr, size, protection, MAP_SHARED, object->file->File(), off_t{headerSize});
    if (view == MAP_FAILED)
    {
        return FailWithErrno(nullptr);
    }
    (*Locked<Views>())[view] = size;
    CountLive(1);
    return view;
}

extern "C" BOOL WINAPI UnmapViewOfFile(LPCVOID address)
{
    const auto view = Locked<Views>()->extract(address);
    CountLive(view.empty() ? 0 : -1);
    const bool unmapped = !view.empty() ? munmap(const_cast<void*>(address), view.mapped()) == 0
                                        : FailWith(ERROR_INVALID_ADDRESS);
    return !FailNextCall("UnmapViewOfFile") && unmapped;
}
} // namespace sndxposix
