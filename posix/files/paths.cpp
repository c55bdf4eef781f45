// Windows paths and POSIX paths.

#include "posix/files/paths.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "posix/text/charsets.h"

namespace fs = std::filesystem;

namespace sndxposix
{
namespace
{
std::string Variable(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

// The root is what everything else stands on; without one there is nothing sensible to go on with.
std::string FindRoot()
{
    fs::path root = Variable("SENDORA_ROOT");
    if (root.empty())
    {
        const fs::path data = Variable("XDG_DATA_HOME");
        const fs::path home = Variable("HOME");
        root = (!data.empty() ? data : (home.empty() ? "/tmp" : home) / ".local/share") / "sendora";
    }
    std::error_code error;
    if (fs::create_directories(root, error))
    {
        fs::permissions(root, fs::perms::owner_all, error); // nobody else's business
    }
    for (const char* const folder : {"drive_c", "objects", "pipe"})
    {
        fs::create_directory(root / folder, error);
        if (error)
        {
            std::abort();
        }
    }
    return fs::canonical(root);
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
fs::path FindEntry(const fs::path& folder, const fs::path& wanted)
{
    std::error_code error;
    if (fs::symlink_status(folder / wanted, error).type() == fs::file_type::not_found)
    {
        const std::u16string folded = FoldCase(Utf16(wanted.native()));
        for (auto entry = fs::directory_iterator(folder, error); entry != fs::directory_iterator();
             entry.increment(error))
        {
            const fs::path name = entry->path().filename();
            if (FoldCase(Utf16(name.native())) == folded)
            {
                return name;
            }
        }
    }
    return wanted;
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
    std::string text = path == nullptr ? std::string() : Utf8(path);
    std::replace(text.begin(), text.end(), '\\', '/');
    if (text.starts_with("//?/"))
    {
        text.erase(0, 4);
    }
    std::string base; // the drive's folder, which ".." does not leave; "" is /
    if (text.size() >= 2 && text[1] == ':')
    {
        // "C:name" is taken from the drive's root: there is no current folder on each drive.
        const char drive = static_cast<char>(text[0] | 0x20);
        if (drive != 'c' && drive != 'z')
        {
            return {};
        }
        base = drive == 'c' ? DriveC() : std::string();
        text.erase(0, 2);
    }
    else if (text.empty() || text.starts_with("//"))
    {
        return {}; // another machine, or a device
    }
    else
    {
        std::error_code error;
        const std::string current = fs::current_path(error);
        base = IsBelow(current, DriveC()) ? DriveC() : std::string();
        text.insert(0, text[0] == '/' ? "" : current.substr(base.size()) + "/");
    }
    fs::path result = base.empty() ? "/" : base;
    for (const fs::path& element : fs::path("/" + text).lexically_normal().relative_path())
    {
        result /= element.empty() ? element : FindEntry(result, element);
    }
    // A separator at the end, which fs::path keeps as an empty element.
    return result.has_filename() || result == "/" ? result : result.parent_path();
}

std::u16string ToWindowsPath(std::string_view path)
{
    const std::string driveC = DriveC();
    const bool isOnC = IsBelow(path, driveC);
    std::u16string result = Utf16(isOnC ? path.substr(driveC.size()) : path);
    std::replace(result.begin(), result.end(), u'/', u'\\');
    return (isOnC ? u"C:" : u"Z:") + (result.empty() ? u"\\" : result);
}
} // namespace sndxposix
