// Enumeration of folders with a pattern of names.

#include "posix/fileattributes.h"
#include "posix/guarded.h"
#include "posix/internal.h"
#include "sndx/files.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

using namespace sndxposix;

namespace
{
// Matches folded text against a folded pattern: * is any text, ? any one unit.
bool Matches(std::u16string_view pattern, std::u16string_view text)
{
    // The place behind the last * and the text it has swallowed so far, to go back to.
    std::size_t star = std::u16string_view::npos;
    std::size_t swallowed = 0;
    std::size_t at = 0;
    std::size_t in = 0;
    while (in < text.size())
    {
        if (at < pattern.size() && pattern[at] == u'*')
        {
            star = ++at;
            swallowed = in;
        }
        else if (at < pattern.size() && (pattern[at] == u'?' || pattern[at] == text[in]))
        {
            ++at;
            ++in;
        }
        else if (star != std::u16string_view::npos)
        {
            at = star;
            in = ++swallowed;
        }
        else
        {
            return false;
        }
    }
    return pattern.find_first_not_of(u'*', at) == std::u16string_view::npos;
}

FILETIME ToFileTime(const timespec& time)
{
    constexpr std::uint64_t secondsFrom1601To1970 = 11'644'473'600;
    const std::uint64_t ticks =
        (static_cast<std::uint64_t>(time.tv_sec) + secondsFrom1601To1970) * 10'000'000 +
        static_cast<std::uint64_t>(time.tv_nsec) / 100;
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// The entries found, taken at the start: sorted by name without regard to case.
class FindObject final : public KernelObject
{
  public:
    FindObject(std::string folder, std::vector<std::string> names)
        : folder_(std::move(folder)), names_(std::move(names))
    {
    }

    // False at the end. Entries that have gone since are passed over, so are those whose name is too long
    // for the structure.
    bool Next(WIN32_FIND_DATAW& data)
    {
        while (next_ < names_.size())
        {
            const std::string& name = names_[next_++];
            const std::string path = folder_ + "/" + name;
            const std::u16string wide = Utf16(name);
            struct stat status;
            if (wide.size() >= MAX_PATH || stat(path.c_str(), &status) != 0)
            {
                continue;
            }
            data = {};
            data.dwFileAttributes = AttributesOf(path, status);
            data.ftCreationTime = ToFileTime(status.st_ctim);
            data.ftLastAccessTime = ToFileTime(status.st_atim);
            data.ftLastWriteTime = ToFileTime(status.st_mtim);
            if (S_ISREG(status.st_mode))
            {
                data.nFileSizeHigh = static_cast<DWORD>(status.st_size >> 32);
                data.nFileSizeLow = static_cast<DWORD>(status.st_size);
            }
            wide.copy(data.cFileName, wide.size());
            return true;
        }
        return false;
    }

  private:
    std::string folder_;
    std::vector<std::string> names_;
    std::size_t next_ = 0;
};

std::vector<std::string> NamesIn(DIR* folder, const std::u16string& pattern)
{
    std::vector<std::pair<std::u16string, std::string>> found;
    while (const dirent* entry = readdir(folder))
    {
        std::u16string folded = FoldCase(Utf16(entry->d_name));
        if (Matches(pattern, folded))
        {
            found.emplace_back(std::move(folded), entry->d_name);
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (auto& entry : found)
    {
        names.push_back(std::move(entry.second));
    }
    return names;
}
} // namespace

extern "C" HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* data)
{
    const auto body = [&]() -> HANDLE
    {
        if (FailNextCall("FindFirstFileW"))
        {
            return INVALID_HANDLE_VALUE;
        }
        const std::u16string text = pattern == nullptr ? u"" : pattern;
        const std::size_t separator = text.find_last_of(u"\\/");
        const std::size_t begin = separator == text.npos ? 0 : separator + 1;
        std::u16string names = FoldCase(std::u16string_view(text).substr(begin));
        const std::string folder = ResolveArgument(begin == 0 ? u"." : text.substr(0, begin).c_str());
        if (folder.empty() || names.empty())
        {
            SetLastError(folder.empty() ? GetLastError() : ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        if (names == u"*.*")
        {
            names = u"*"; // of old, every name has a dot
        }
        DIR* const entries = opendir(folder.c_str());
        if (entries == nullptr)
        {
            const int error = errno;
            SetLastError(error == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(error));
            return INVALID_HANDLE_VALUE;
        }
        const auto find = std::make_shared<FindObject>(folder, NamesIn(entries, names));
        closedir(entries);
        if (!find->Next(*data))
        {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        return InsertHandle(find);
    };
    return Guarded(INVALID_HANDLE_VALUE, body);
}

extern "C" BOOL WINAPI FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data)
{
    const auto body = [&]() -> BOOL
    {
        if (FailNextCall("FindNextFileW"))
        {
            return FALSE;
        }
        const auto object = LookupHandleAs<FindObject>(find);
        if (!object)
        {
            return FALSE;
        }
        return object->Next(*data) || FailWith(ERROR_NO_MORE_FILES);
    };
    return Guarded(BOOL{}, body);
}

extern "C" BOOL WINAPI FindClose(HANDLE find)
{
    if (FailNextCall("FindClose"))
    {
        return FALSE;
    }
    return LookupHandleAs<FindObject>(find) && RemoveHandle(find);
}
