// Listing a folder.

#include <filesystem>
#include <map>

#include <sys/stat.h>

#include "posix/base/handles.h"
#include "posix/files/attributes.h"
#include "posix/files/paths.h"
#include "posix/text/charsets.h"

namespace sndxposix
{
namespace
{
// What was found, by folded names; read whole when the listing begins.
struct ListingObject : public KernelObject
{
    std::multimap<std::u16string, WIN32_FIND_DATAW> left;

    bool Take(WIN32_FIND_DATAW& data)
    {
        if (left.empty())
        {
            return FailWith(ERROR_NO_MORE_FILES);
        }
        data = left.begin()->second;
        left.erase(left.begin());
        return true;
    }
};

// Both texts are folded.
bool Fits(std::u16string_view name, std::u16string_view pattern)
{
    const std::size_t star = pattern.find(u'*');
    return star == pattern.npos
               ? name == pattern
               : name.size() + 1 >= pattern.size() && name.starts_with(pattern.substr(0, star)) &&
                     name.ends_with(pattern.substr(star + 1));
}

void Add(ListingObject& listing, const std::filesystem::path& path)
{
    const std::u16string name = Utf16(path.filename().native());
    WIN32_FIND_DATAW data = {};
    struct stat status;
    // Neither a name that has no room nor a link that leads nowhere is shown.
    if (name.size() >= std::size(data.cFileName) || stat(path.c_str(), &status) != 0 ||
        (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)))
    {
        return;
    }
    WIN32_FILE_ATTRIBUTE_DATA facts;
    Describe(path.native(), status, facts);
    data.dwFileAttributes = facts.dwFileAttributes;
    data.ftCreationTime = facts.ftCreationTime;
    data.ftLastAccessTime = facts.ftLastAccessTime;
    data.ftLastWriteTime = facts.ftLastWriteTime;
    data.nFileSizeHigh = facts.nFileSizeHigh;
    data.nFileSizeLow = facts.nFileSizeLow;
    name.copy(data.cFileName, name.size());
    listing.left.emplace(FoldCase(name), data);
}
} // namespace

extern "C" HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data)
{
    const auto body = [&]() -> HANDLE
    {
        const std::u16string_view text = pattern == nullptr ? std::u16string_view() : pattern;
        const std::size_t cut = text.find_last_of(u"\\/") + 1;
        const std::u16string wanted = FoldCase(text.substr(cut));
        const std::string folder = ResolveArgument(std::u16string(text.substr(0, cut)).c_str());
        if (folder.empty() || wanted.empty())
        {
            return folder.empty() ? INVALID_HANDLE_VALUE
                                  : FailWith(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
        }
        const auto listing = std::make_shared<ListingObject>();
        std::error_code error;
        for (auto entry = std::filesystem::directory_iterator(folder, error);
             entry != std::filesystem::directory_iterator(); entry.increment(error))
        {
            if (Fits(FoldCase(Utf16(entry->path().filename().native())), wanted))
            {
                Add(*listing, entry->path());
            }
        }
        if (error)
        {
            return FailWith(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
        }
        return listing->Take(*data) ? InsertHandle(listing)
                                    : FailWith(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    };
    return Call("FindFirstFileW", INVALID_HANDLE_VALUE, body);
}

extern "C" BOOL WINAPI FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data)
{
    const auto body = [&]() -> BOOL
    {
        const auto listing = LookupHandleAs<ListingObject>(find);
        return listing && listing->Take(*data);
    };
    return Call("FindNextFileW", FALSE, body);
}

extern "C" BOOL WINAPI FindClose(HANDLE find)
{
    return LookupHandleAs<ListingObject>(find) && RemoveHandle(find);
}
} // namespace sndxposix
