// Sections: memory that processes share, and its views.

#include "posix/namedobjects.h"

#include <cerrno>
#include <map>
#include <mutex>

#include <sys/mman.h>
#include <unistd.h>

#include "sndx/sync.h"

namespace sndxposix
{
namespace
{
// A section's file: locks, kind and size in the first page, the memory behind it.
constexpr std::uint64_t headerSize = 4096;

class SectionObject : public KernelObject
{
  public:
    SectionObject(std::unique_ptr<NamedFile> named, Descriptor unnamed, std::uint64_t size)
        : named_(std::move(named)), unnamed_(std::move(unnamed)), size_(size)
    {
    }
    int File() const { return named_ ? named_->File() : unnamed_.Get(); }
    std::uint64_t Size() const { return size_; }

  private:
    const std::unique_ptr<NamedFile> named_; // null for a section without a name
    const Descriptor unnamed_;
    const std::uint64_t size_;
};

// Views by address, with their sizes. Never destroyed: modules unmap in their static destructors.
struct Views
{
    std::mutex mutex;
    std::map<const void*, std::size_t> sizes;
};

Views& TheViews()
{
    static Views& views = *new Views;
    return views;
}

std::shared_ptr<SectionObject> MakeUnnamed(std::uint64_t size)
{
    Descriptor file(memfd_create("section", MFD_CLOEXEC));
    if (!file.IsOpen() || ftruncate(file.Get(), static_cast<off_t>(headerSize + size)) != 0)
    {
        return FailWith(ErrorFromErrno(errno), nullptr);
    }
    return std::make_shared<SectionObject>(nullptr, std::move(file), size);
}

// size counts for a new section only.
std::shared_ptr<SectionObject> EnterNamed(const WCHAR* name, NamedFile::Access access, std::uint64_t size,
                                          bool& existed)
{
    const auto path = NamedObjectPath(name);
    if (!path)
    {
        return nullptr;
    }
    auto named = NamedFile::Enter(*path, NamedKind::Section, access, &existed, &size, sizeof size);
    if (!named)
    {
        return nullptr;
    }
    // Whoever comes first gives the file its length; a second time changes nothing.
    if (!ReadAt(named->File(), &size, sizeof size, objectDataOffset) ||
        ftruncate(named->File(), static_cast<off_t>(headerSize + size)) != 0)
    {
        return FailWith(ErrorFromErrno(errno), nullptr);
    }
    return std::make_shared<SectionObject>(std::move(named), Descriptor(), size);
}
} // namespace
} // namespace sndxposix

using namespace sndxposix;

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
        const auto section = name == nullptr || *name == 0
                                 ? MakeUnnamed(size)
                                 : EnterNamed(name, NamedFile::Access::Create, size, existed);
        if (!section)
        {
            return nullptr;
        }
        const HANDLE handle = InsertHandle(section);
        SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
        return handle;
    };
    return Call("CreateFileMappingW", HANDLE{}, body);
}

extern "C" HANDLE WINAPI OpenFileMappingW(DWORD, BOOL, LPCWSTR name)
{
    bool existed = false;
    const auto section = EnterNamed(name, NamedFile::Access::Open, 0, existed);
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
    const std::uint64_t wholePages = (object->Size() + page - 1) / page * page;
    if (offsetHigh != 0 || offsetLow != 0 || bytes > wholePages)
    {
        return FailWith(offsetHigh != 0 || offsetLow != 0 ? ERROR_INVALID_PARAMETER : ERROR_ACCESS_DENIED,
                        nullptr);
    }
    const std::size_t size = bytes == 0 ? static_cast<std::size_t>(wholePages) : bytes;
    const int protection = (access & FILE_MAP_WRITE) != 0 ? PROT_READ | PROT_WRITE : PROT_READ;
    void* view = mmap(nullptr, size, protection, MAP_SHARED, object->File(), off_t{headerSize});
    if (view == MAP_FAILED)
    {
        return FailWith(ErrorFromErrno(errno), nullptr);
    }
    Views& views = TheViews();
    const std::lock_guard lock(views.mutex);
    views.sizes[view] = size;
    return view;
}

extern "C" BOOL WINAPI UnmapViewOfFile(LPCVOID address)
{
    if (FailNextCall("UnmapViewOfFile"))
    {
        return FALSE;
    }
    Views& views = TheViews();
    const std::lock_guard lock(views.mutex);
    const auto view = views.sizes.find(address);
    if (view == views.sizes.end())
    {
        return FailWith(ERROR_INVALID_ADDRESS);
    }
    munmap(const_cast<void*>(address), view->second);
    views.sizes.erase(view);
    return TRUE;
}
