// Dropped files and well-known folders.

#include "sndx/shell.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include <pwd.h>
#include <unistd.h>

#include "sndx/memory.h"

#include "posix/guarded.h"
#include "posix/internal.h"

namespace sndxposix
{
namespace
{
// The name with this index in a list of names that ends with an empty one, or with the memory; `count`
// becomes the number of names passed. Of a name that the memory's end cuts off the rest is taken. Reads no
// further than that name, or the list's end.
template <class Unit>
std::optional<std::basic_string<Unit>> NameAt(const BYTE* list, std::size_t size, UINT index, UINT& count)
{
    std::basic_string<Unit> name;
    count = 0;
    for (std::size_t at = 0; at + sizeof(Unit) <= size; at += sizeof(Unit))
    {
        Unit unit;
        std::memcpy(&unit, list + at, sizeof(unit)); // the list may begin at an odd address
        if (unit != Unit{})
        {
            name.push_back(unit);
            continue;
        }
        if (name.empty() || count == index)
        {
            break;
        }
        name.clear();
        ++count;
    }
    if (name.empty())
    {
        return std::nullopt;
    }
    if (count != index)
    {
        ++count; // a last name without terminator
        return std::nullopt;
    }
    return name;
}

// The same on a block of dropped files.
std::optional<std::u16string> DroppedName(const BYTE* block, std::size_t size, UINT index, UINT& count)
{
    count = 0;
    DROPFILES header;
    if (size < sizeof(header))
    {
        return std::nullopt;
    }
    std::memcpy(&header, block, sizeof(header));
    if (header.pFiles > size)
    {
        return std::nullopt;
    }
    const BYTE* const list = block + header.pFiles;
    const std::size_t listSize = size - header.pFiles;
    if (header.fWide != FALSE)
    {
        return NameAt<char16_t>(list, listSize, index, count);
    }
    const std::optional<std::string> name = NameAt<char>(list, listSize, index, count);
    return name ? std::optional(Utf16(*name)) : std::nullopt;
}

// A program names a drop by its global block or by the address at which it has locked that block. Holds the
// block locked in the first case. In the second one its size is not known: the memory ends where it cannot
// be read any more, and a list without end is read up to there.
class LockedDrop
{
  public:
    explicit LockedDrop(HDROP drop) : drop_(drop), bytes_(static_cast<const BYTE*>(GlobalLock(drop)))
    {
        if (bytes_ != nullptr)
        {
            isHandle_ = true;
            size_ = GlobalSize(drop);
            return;
        }
        MEMORY_BASIC_INFORMATION region = {};
        if (VirtualQuery(drop, &region, sizeof(region)) != 0 && region.State == MEM_COMMIT &&
            (region.Protect & (PAGE_NOACCESS | PAGE_EXECUTE)) == 0)
        {
            bytes_ = reinterpret_cast<const BYTE*>(drop);
            size_ = static_cast<std::size_t>(static_cast<const BYTE*>(region.BaseAddress) +
                                             region.RegionSize - bytes_);
        }
    }
    ~LockedDrop()
    {
        if (isHandle_)
        {
            GlobalUnlock(drop_);
        }
    }
    LockedDrop(const LockedDrop&) = delete;
    LockedDrop& operator=(const LockedDrop&) = delete;

    const BYTE* Bytes() const { return bytes_; }
    std::size_t Size() const { return size_; }

  private:
    HDROP drop_;
    const BYTE* bytes_;
    std::size_t size_ = 0;
    bool isHandle_ = false;
};

std::u16string UserName()
{
    const passwd* const entry = getpwuid(getuid());
    return entry != nullptr ? Utf16(entry->pw_name) : u"user" + Utf16(std::to_string(getuid()));
}
} // namespace
} // namespace sndxposix

using namespace sndxposix;

extern "C" UINT WINAPI DragQueryFileW(HDROP drop, UINT index, LPWSTR file, UINT capacity)
{
    if (FailNextCall("DragQueryFileW"))
    {
        return 0;
    }
    const DWORD lastError = GetLastError();
    const UINT result = Guarded(UINT{0},
                                [&]
                                {
                                    const LockedDrop block(drop);
                                    UINT count = 0;
                                    const std::optional<std::u16string> name =
                                        DroppedName(block.Bytes(), block.Size(), index, count);
                                    if (index == 0xFFFFFFFFu)
                                    {
                                        return count;
                                    }
                                    if (!name)
                                    {
                                        return UINT{0};
                                    }
                                    if (file == nullptr || capacity == 0)
                                    {
                                        return static_cast<UINT>(name->size());
                                    }
                                    const std::size_t length =
                                        std::min<std::size_t>(name->size(), capacity - 1);
                                    std::copy_n(name->begin(), length, file);
                                    file[length] = 0;
                                    return static_cast<UINT>(length);
                                });
    SetLastError(lastError); // the locking and looking has left its own
    return result;
}

extern "C" HRESULT WINAPI SHGetFolderPathW(HWND, int folder, HANDLE, DWORD, LPWSTR path)
{
    if (FailNextCall("SHGetFolderPathW"))
    {
        return E_FAIL;
    }
    path[0] = 0;
    const int kind = folder & ~CSIDL_FLAG_CREATE;
    if (kind != CSIDL_APPDATA && kind != CSIDL_LOCAL_APPDATA)
    {
        return E_INVALIDARG;
    }
    return Guarded(E_OUTOFMEMORY,
                   [&]
                   {
                       const std::u16string name =
                           u"C:\\users\\" + UserName() +
                           (kind == CSIDL_APPDATA ? u"\\AppData\\Roaming" : u"\\AppData\\Local");
                       std::error_code error;
                       std::filesystem::create_directories(ToUnixPath(name.c_str()), error);
                       if (error || name.size() >= MAX_PATH)
                       {
                           return E_FAIL;
                       }
                       std::copy_n(name.c_str(), name.size() + 1, path);
                       return S_OK;
                   });
}
