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
    WideString operator/(const std::string& name) const
    {
#ifdef _WIN32
        return Wide(folder_.string() + "\\" + name);
#else
        return Wide("C:\\" + folder_.filename().string() + "\\" + name);
#endif
    }
    // The same for the standard library.
    std::filesystem::path File(const std::string& name) const
    {
        return folder_ / name;
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
} // namespace sndxtest
