#pragma once
// The archive attribute of items, as the module sees it.

#include <map>
#include <stdexcept>
#include <string>

#include <windows.h>

#ifdef _WIN32
#include "tests/dll/moduleimports.h"
#endif
#include "tests/support/text.h"

namespace sndxtest
{
#ifdef _WIN32
// Wine gives every file the attribute and no folder, and lets nobody change that. So the module's import of
// GetFileAttributesW is replaced: a path that was set here answers as set, every other one as the system
// does.
class ArchiveAttribute
{
  public:
    explicit ArchiveAttribute(HMODULE module)
    {
        if (!ReplaceImport(module, "GetFileAttributesW", reinterpret_cast<void*>(&Answer)))
        {
            throw std::runtime_error("the module does not read attributes");
        }
    }
    ArchiveAttribute(const ArchiveAttribute&) = delete;
    ArchiveAttribute& operator=(const ArchiveAttribute&) = delete;

    // Nothing for a missing item.
    void Set(const std::string& path, bool set) { Paths()[Wide(path)] = set; }

  private:
    static std::map<WideString, bool>& Paths()
    {
        static std::map<WideString, bool> paths;
        return paths;
    }
    static DWORD WINAPI Answer(LPCWSTR path)
    {
        const DWORD attributes = GetFileAttributesW(path);
        const auto found = Paths().find(path);
        if (attributes == INVALID_FILE_ATTRIBUTES || found == Paths().end())
        {
            return attributes;
        }
        return found->second ? attributes | FILE_ATTRIBUTE_ARCHIVE
                             : attributes & ~DWORD{FILE_ATTRIBUTE_ARCHIVE};
    }
};
#else
class ArchiveAttribute
{
  public:
    explicit ArchiveAttribute(HMODULE) {}

    // Nothing for a missing item.
    void Set(const std::string& path, bool set)
    {
        const DWORD attributes = GetFileAttributesW(Wide(path).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES)
        {
            SetFileAttributesW(Wide(path).c_str(), set ? attributes | FILE_ATTRIBUTE_ARCHIVE
                                                       : attributes & ~DWORD{FILE_ATTRIBUTE_ARCHIVE});
        }
    }
};
#endif
} // namespace sndxtest
