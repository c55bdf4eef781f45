#include "tools/paths.h"

#include <filesystem>

#include "tools/commandline.h"

namespace sndxtools
{
namespace
{
bool IsSeparator(char c)
{
    return c == '\\' || c == '/';
}

#ifdef _WIN32
constexpr char fullPathHint[] = "a full path such as C:\\Folder\\File.txt";

bool IsFullPosixPath(const std::string&)
{
    return false; // A leading '/' names no drive here.
}

WideString FromPosixPath(const std::filesystem::path& path)
{
    return path.native();
}
#else
constexpr char fullPathHint[] = "a full path such as C:\\Folder\\File.txt or /folder/file.txt";

bool IsFullPosixPath(const std::string& path)
{
    return !path.empty() && path[0] == '/';
}

// Drive Z: of the layer is the root of the POSIX file system.
WideString FromPosixPath(const std::filesystem::path& path)
{
    WideString result = Wide("Z:" + path.native());
    for (WCHAR& unit : result)
    {
        if (unit == TEXT('/'))
        {
            unit = TEXT('\\');
        }
    }
    return result;
}
#endif
} // namespace

bool IsFullTargetPath(const std::string& path)
{
    if (path.size() < 3)
    {
        return false;
    }
    const char drive = static_cast<char>(path[0] | 0x20);
    const bool hasDrive = drive >= 'a' && drive <= 'z' && path[1] == ':' && IsSeparator(path[2]);
    return hasDrive || (path[0] == '\\' && path[1] == '\\');
}

WideString ItemPath(const std::string& path)
{
    if (IsFullTargetPath(path))
    {
        return Wide(path);
    }
    if (IsFullPosixPath(path))
    {
        return FromPosixPath(path);
    }
    throw UsageError("'" + path + "' is not " + fullPathHint);
}

WideString FilePath(const std::string& path)
{
    if (IsFullTargetPath(path))
    {
        return Wide(path);
    }
    std::error_code error;
    const auto bytes = reinterpret_cast<const char8_t*>(path.data());
    const auto full = std::filesystem::absolute(std::u8string_view(bytes, path.size()), error);
    if (path.empty() || error)
    {
        throw UsageError("'" + path + "' is not a usable file name");
    }
    return FromPosixPath(full);
}

WideString ProgramPath()
{
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
    return WideString(path, length < std::size(path) ? length : 0);
}

WideString ProgramFolder()
{
    const WideString path = ProgramPath();
    return path.substr(0, path.find_last_of(TEXT("\\/")) + 1);
}
} // namespace sndxtools
