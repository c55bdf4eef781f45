#pragma once
// An empty folder for the files of one test, removed with them afterwards.

#include <cstdlib>
#include <filesystem>
#include <string>

#include <windows.h>

#include "tests/support/text.h"

namespace sndxtest
{
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The Windows path of a name in the folder; without a name, the folder with a backslash at its end.
    std::string operator/(const std::string& name) const
    {
#ifdef _WIN32
        return folder_.string() + "\\" + name;
#else
        return "C:\\" + folder_.filename().string() + "\\" + name;
#endif
    }

  private:
    static std::filesystem::path Parent()
    {
#ifdef _WIN32
        return std::filesystem::temp_directory_path();
#else
        return std::string(std::getenv("SENDORA_ROOT")) + "/drive_c";
#endif
    }
    const std::filesystem::path folder_ = Parent() / ("sndx test " + std::to_string(GetCurrentProcessId()));
};

inline HANDLE OpenFile(const std::string& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
{
    return CreateFileW(Wide(path).c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}
} // namespace sndxtest
