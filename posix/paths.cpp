// Windows paths and POSIX paths.

#include "posix/internal.h"

#include <cstdlib>
#include <algorithm>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sndxposix
{
namespace
{
constexpr mode_t privateFolder = 0700;

// Creates a folder and those above it. False when it does not exist afterwards.
bool CreateFolders(const std::string& path)
{
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1))
    {
        mkdir(path.substr(0, end).c_str(), privateFolder);
        if (end == std::string::npos)
        {
            break;
        }
    }
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string Canonical(const std::string& path)
{
    char* resolved = realpath(path.c_str(), nullptr);
    std::string result = resolved == nullptr ? path : resolved;
    std::free(resolved);
    return result;
}

std::string CurrentFolder()
{
    char* folder = getcwd(nullptr, 0);
    std::string result = folder == nullptr ? "/" : folder;
    std::free(folder);
    return result;
}

// The root is what everything else stands on; without one there is nothing sensible to go on with.
std::string FindRoot()
{
    std::string root;
    if (const char* given = std::getenv("SENDORA_ROOT"); given != nullptr && *given != 0)
    {
        root = given;
    }
    else if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data != 0)
    {
        root = std::string(data) + "/sendora";
    }
    else
    {
        const char* home = std::getenv("HOME");
        root = std::string(home == nullptr ? "/tmp" : home) + "/.local/share/sendora";
    }
    if (root.front() != '/')
    {
        root = CurrentFolder() + "/" + root;
    }
    for (const char* folder : {"/drive_c", "/objects", "/pipe"})
    {
        if (!CreateFolders(root + folder))
        {
            std::abort();
        }
    }
    return Canonical(root);
}

std::string DriveC()
{
    return RootFolder() + "/drive_c";
}

bool IsBelow(std::string_view path, std::string_view folder)
{
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// The name of the entry of the folder that differs from the wanted one in the case of letters only; the
// wanted one when there is none. Of several the first that the system lists.
std::string FindEntry(const std::string& folder, const std::string& wanted)
{
    struct stat status;
    if (lstat((folder + "/" + wanted).c_str(), &status) == 0)
    {
        return wanted;
    }
    DIR* entries = opendir(folder.empty() ? "/" : folder.c_str());
    if (entries == nullptr)
    {
        return wanted;
    }
    const std::u16string folded = FoldCase(Utf16(wanted));
    std::string found = wanted;
    while (const dirent* entry = readdir(entries))
    {
        if (FoldCase(Utf16(entry->d_name)) == folded)
        {
            found = entry->d_name;
            break;
        }
    }
    closedir(entries);
    return found;
}

std::vector<std::string> Elements(std::string_view path)
{
    std::vector<std::string> elements;
    for (std::size_t begin = 0; begin < path.size();)
    {
        const std::size_t end = std::min(path.find_first_of("/\\", begin), path.size());
        if (end > begin)
        {
            elements.emplace_back(path.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return elements;
}

bool IsSeparator(char c)
{
    return c == '/' || c == '\\';
}
} // namespace

const std::string& RootFolder()
{
    // Never destroyed: modules write files in their static destructors.
    static const std::string& root = *new std::string(FindRoot());
    return root;
}

std::string ToUnixPath(const WCHAR* path)
{
    if (path == nullptr || *path == 0)
    {
        return {};
    }
    std::string text = Utf8(path);
    if (text.starts_with("\\\\?\\"))
    {
        text.erase(0, 4);
    }
    const std::string driveC = DriveC();
    std::string base;                  // the drive's folder, which ".." does not leave; "" is /
    std::vector<std::string> elements; // below it
    if (text.size() >= 2 && text[1] == ':')
    {
        // "C:name" is taken from the drive's root: there is no current folder on each drive.
        const char drive = static_cast<char>(text[0] | 0x20);
        if (drive != 'c' && drive != 'z')
        {
            return {};
        }
        base = drive == 'c' ? driveC : std::string();
        text.erase(0, 2);
    }
    else if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1]))
    {
        return {}; // another machine, or a device
    }
    else
    {
        const std::string current = CurrentFolder();
        base = IsBelow(current, driveC) ? driveC : std::string();
        if (!IsSeparator(text[0]))
        {
            elements = Elements(std::string_view(current).substr(base.size()));
        }
    }
    for (std::string& element : Elements(text))
    {
        if (element == "..")
        {
            if (!elements.empty())
            {
                elements.pop_back();
            }
        }
        else if (element != ".")
        {
            elements.push_back(std::move(element));
        }
    }
    std::string result = base;
    for (const std::string& element : elements)
    {
        result += "/" + FindEntry(result, element);
    }
    return result.empty() ? "/" : result;
}

std::u16string ToWindowsPath(std::string_view path)
{
    const std::string driveC = DriveC();
    const bool isOnC = IsBelow(path, driveC);
    std::u16string result = Utf16(isOnC ? path.substr(driveC.size()) : path);
    for (char16_t& unit : result)
    {
        unit = unit == u'/' ? u'\\' : unit;
    }
    if (result.empty())
    {
        result = u"\\";
    }
    return (isOnC ? u"C:" : u"Z:") + result;
}
} // namespace sndxposix
