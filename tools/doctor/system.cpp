#include "tools/doctor/system.h"

#include <algorithm>

#include <windows.h>
#include <tlhelp32.h>

namespace sndxtools::doctor
{
namespace
{
constexpr DWORD partSize = 4096;

// Null for both values that calls return for no handle.
OwnedHandle Own(HANDLE handle)
{
    return OwnedHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

// Calls see(entry) for each entry of a snapshot, read by the two functions.
template <class Item, class First, class Next, class See>
void ForEach(const OwnedHandle& snapshot, First first, Next next, See see)
{
    Item item = {};
    item.dwSize = sizeof item;
    for (BOOL more = snapshot && first(snapshot.get(), &item); more; more = next(snapshot.get(), &item))
    {
        see(item);
    }
}
} // namespace

WideString Folded(WideString text)
{
    const auto fold = [](WCHAR unit)
    { return unit >= TEXT('A') && unit <= TEXT('Z') ? static_cast<WCHAR>(unit | 0x20) : unit; };
    std::ranges::transform(text, text.begin(), fold);
    return text;
}

std::string ErrorText(DWORD error)
{
    const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return isMissing                      ? "not found"
           : error == ERROR_ACCESS_DENIED ? "access denied"
           : error == ERROR_MORE_DATA     ? "too long"
                                          : "error " + std::to_string(error);
}

std::vector<Entry> List(const WideString& pattern)
{
    std::vector<Entry> entries;
    WIN32_FIND_DATAW data = {};
    const HANDLE find = FindFirstFileW(pattern.c_str(), &data);
    for (BOOL more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileW(find, &data))
    {
        entries.push_back({data.cFileName, (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                           std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow});
    }
    if (find != INVALID_HANDLE_VALUE)
    {
        FindClose(find);
    }
    return entries;
}

std::string Fault(const WideString& path, bool wantsFolder)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
    {
        return ErrorText(GetLastError());
    }
    const bool isFolder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return isFolder == wantsFolder ? "" : isFolder ? "a folder" : "a file";
}

std::string ReadPart(const WideString& path, bool tail)
{
    // Sharing everything: the module's own opens must not fail because of this one.
    const OwnedHandle file =
        Own(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER distance; // refused where the file is smaller, so that the start remains
    distance.QuadPart = -LONGLONG{partSize};
    if (tail)
    {
        SetFilePointerEx(file.get(), distance, nullptr, FILE_END);
    }
    std::string bytes(partSize, '\0');
    DWORD read = 0;
    bytes.resize(ReadFile(file.get(), bytes.data(), partSize, &read, nullptr) ? read : 0);
    return bytes;
}

WideString AsSpelled(WideString path)
{
    // Behind the drive, or server and share.
    const std::size_t root = path.starts_with(TEXT("\\\\")) ? path.find(TEXT('\\'), 2) + 1 : 0;
    for (std::size_t at = path.find(TEXT('\\'), root); at < path.size(); at = path.find(TEXT('\\'), at + 1))
    {
        const std::size_t end = std::min(path.find(TEXT('\\'), at + 1), path.size());
        const std::vector<Entry> found = List(path.substr(0, end));
        path.replace(at + 1, end - at - 1, found.empty() ? path.substr(at + 1, end - at - 1) : found[0].name);
    }
    return path;
}

std::string ImageFault(std::string_view head)
{
    const auto byte = [head](std::size_t at)
    { return at < head.size() ? static_cast<unsigned char>(head[at]) : 0U; };
#ifdef _WIN32
    const std::size_t header = byte(0x3C) | byte(0x3D) << 8;
    const bool isImage = head.find(std::string_view("PE\0\0", 4)) == header;
    const bool is64Bit = (byte(header + 4) | byte(header + 5) << 8) == IMAGE_FILE_MACHINE_AMD64;
    const bool isLibrary = ((byte(header + 22) | byte(header + 23) << 8) & IMAGE_FILE_DLL) != 0;
#else
    const bool isImage = head.starts_with("\177ELF");
    const bool is64Bit = byte(4) == 2;
    const bool isLibrary = byte(16) == 3;
#endif
    return !isImage ? "is no image" : !is64Bit ? "is no 64-bit image" : !isLibrary ? "is no library" : "";
}

std::string ImageVersion([[maybe_unused]] const WideString& path)
{
#ifdef _WIN32
    std::vector<BYTE> data(GetFileVersionInfoSizeW(path.c_str(), nullptr));
    void* found = nullptr;
    UINT length = 0;
    if (GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(data.size()), data.data()) &&
        VerQueryValueW(data.data(), L"\\", &found, &length) && length >= sizeof(VS_FIXEDFILEINFO))
    {
        const DWORD version = static_cast<const VS_FIXEDFILEINFO*>(found)->dwFileVersionMS;
        return std::to_string(HIWORD(version)) + "." + std::to_string(LOWORD(version));
    }
#endif
    return {};
}

Processes FindHolders()
{
    Processes found;
    found.areKnown = true;
    bool shellRuns = false;
    const auto isShell = [](const WideString& program) { return Folded(program) == TEXT("explorer.exe"); };
    const auto seeProcess = [&](const PROCESSENTRY32W& process)
    {
        const OwnedHandle modules = Own(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process.th32ProcessID));
        found.closed += modules ? 0 : 1;
        shellRuns = shellRuns || (modules && isShell(process.szExeFile));
        const auto seeModule = [&](const MODULEENTRY32W& module)
        {
            if (Folded(module.szModule).starts_with(TEXT("sndxdll."))) // also "sndxdll.dll.1.old"
            {
                found.holders.push_back({process.th32ProcessID, Utf8(process.szExeFile), module.szExePath});
            }
        };
        ForEach<MODULEENTRY32W>(modules, Module32FirstW, Module32NextW, seeModule);
    };
    ForEach<PROCESSENTRY32W>(Own(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0)), Process32FirstW,
                             Process32NextW, seeProcess);
    const auto holds = [&isShell](const Holder& holder) { return isShell(Wide(holder.program)); };
    const bool isWine = GetProcAddress(GetModuleHandleW(TEXT("ntdll.dll")), "wine_get_version") != nullptr;
    found.shellWithout = shellRuns && !isWine && std::ranges::none_of(found.holders, holds);
    return found;
}
} // namespace sndxtools::doctor
