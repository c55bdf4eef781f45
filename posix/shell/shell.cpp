// Dropped files and well-known folders.

#include <cstring>
#include <filesystem>
#include <optional>
#include <span>

#include <pwd.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/files/paths.h"
#include "posix/memory/globalblocks.h"
#include "posix/text/charsets.h"
#include "sndx/shell.h"

namespace sndxposix
{
namespace
{
// The name with this index in a list of names that ends with an empty one, or with the memory; `count`
// becomes the number of names passed. Of a name that the memory's end cuts off the rest is taken. Reads no
// further than that name, or the list's end.
template <class Unit>
std::optional<std::basic_string<Unit>> NameAt(std::span<const BYTE> list, UINT index, UINT& count)
{
    std::basic_string<Unit> name;
    count = 0;
    for (std::size_t at = 0; at + sizeof(Unit) <= list.size(); at += sizeof(Unit))
    {
        Unit unit;
        std::memcpy(&unit, &list[at], sizeof(unit)); // the list may begin at an odd address
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
std::optional<std::u16string> DroppedName(std::span<const BYTE> block, UINT index, UINT& count)
{
    count = 0;
    DROPFILES header;
    if (block.size() < sizeof(header))
    {
        return std::nullopt;
    }
    std::memcpy(&header, block.data(), sizeof(header));
    if (header.pFiles > block.size())
    {
        return std::nullopt;
    }
    const std::span<const BYTE> list = block.subspan(header.pFiles);
    if (header.fWide != FALSE)
    {
        return NameAt<char16_t>(list, index, count);
    }
    const std::optional<std::string> name = NameAt<char>(list, index, count);
    return name ? std::optional(Utf16(*name)) : std::nullopt;
}

std::u16string UserName()
{
    const passwd* const entry = getpwuid(getuid());
    return entry != nullptr ? Utf16(entry->pw_name) : u"user" + Utf16(std::to_string(getuid()));
}
} // namespace

// A program names a drop by its global block or by the address at which it has locked that block.
extern "C" UINT WINAPI DragQueryFileW(HDROP drop, UINT index, LPWSTR file, UINT capacity)
{
    const auto body = [&]() -> UINT
    {
        UINT count = 0;
        const std::optional<std::u16string> name = DroppedName(FindGlobalBlock(drop), index, count);
        if (index == 0xFFFFFFFFu)
        {
            return count;
        }
        if (!name || file == nullptr || capacity == 0)
        {
            return name ? static_cast<UINT>(name->size()) : 0;
        }
        const std::size_t length = name->copy(file, capacity - 1);
        file[length] = 0;
        return static_cast<UINT>(length);
    };
    return Call("DragQueryFileW", UINT{0}, body, {{file, capacity * sizeof(WCHAR)}});
}

extern "C" HRESULT WINAPI SHGetFolderPathW(HWND, int folder, HANDLE, DWORD, LPWSTR path)
{
    const auto body = [&]() -> HRESULT
    {
        path[0] = 0;
        if (folder != CSIDL_APPDATA)
        {
            return E_INVALIDARG;
        }
        const std::u16string name = u"C:\\users\\" + UserName() + u"\\AppData\\Roaming";
        std::error_code error;
        std::filesystem::create_directories(ToUnixPath(name.c_str()), error);
        if (error || name.size() >= MAX_PATH)
        {
            return E_FAIL;
        }
        path[name.copy(path, name.size())] = 0;
        return S_OK;
    };
    return Call("SHGetFolderPathW", E_FAIL, body, {{path, MAX_PATH * sizeof(WCHAR)}});
}
} // namespace sndxposix
