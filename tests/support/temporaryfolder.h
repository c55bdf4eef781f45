#pragma once
// An empty folder for the files of one test, removed with all of them afterwards. One in each process.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <windows.h>

#include "tests/support/timing.h"
#include "tests/support/tracefile.h"

namespace sndxtest
{
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        std::filesystem::remove_all(folder_); // of a killed process with this identifier
        std::filesystem::create_directories(folder_);
    }
    ~TemporaryFolder()
    {
        // A program that the test has started may still be about to end and hold a file open.
        std::error_code error;
        Within(2000, [&] { return std::filesystem::remove_all(folder_, error), !error; });
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // The Windows path of the folder, and of a name in it. An empty name gives the folder with a backslash.
    std::string Path() const
    {
#ifdef _WIN32
        return folder_.string();
#else
        return "C:\\" + folder_.filename().string();
#endif
    }
    std::string operator/(const std::string& name) const
    {
        return Path() + "\\" + name;
    }
    // The same for the test's own library calls.
    std::filesystem::path Local(std::string name) const
    {
        std::replace(name.begin(), name.end(), '\\', '/');
        return folder_ / name;
    }
    // A new file; missing folders in between are made.
    std::string File(const std::string& name) const
    {
        std::filesystem::create_directories(Local(name).parent_path());
        WriteWholeFile(*this / name, "content");
        return *this / name;
    }

  private:
    static std::filesystem::path Parent()
    {
        const char* const root = std::getenv("SENDORA_ROOT"); // native only
        return root == nullptr ? std::filesystem::temp_directory_path()
                               : std::filesystem::path(root) / "drive_c";
    }
    const std::filesystem::path folder_ = Parent() / ("sndx test " + std::to_string(GetCurrentProcessId()));
};

inline HANDLE OpenFile(const std::string& path, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING)
{
    return CreateFileW(Wide(path).c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}
} // namespace sndxtest
