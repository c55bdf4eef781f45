#include "tests/platform/temporaryfolder.h"

#include <stdexcept>

namespace sndxtest
{
TemporaryFolder::TemporaryFolder()
{
    WCHAR buffer[MAX_PATH];
    if (GetTempPathW(MAX_PATH, buffer) == 0)
    {
        throw std::runtime_error("no folder for temporary files");
    }
    path_ = buffer + Wide("sndx-test");
    Empty(path_);
    if (!CreateDirectoryW(path_.c_str(), nullptr))
    {
        throw std::runtime_error("cannot make " + Utf8(path_));
    }
}

TemporaryFolder::~TemporaryFolder()
{
    Empty(path_);
}

void TemporaryFolder::Empty(const WideString& folder)
{
    WIN32_FIND_DATAW data;
    const HANDLE find = FindFirstFileW((folder + Wide("\\*")).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
    {
        return;
    }
    do
    {
        const std::string name = Utf8(data.cFileName);
        const WideString path = folder + Wide("\\" + name);
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        {
            SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(path.c_str());
        }
        else if (name != "." && name != "..")
        {
            Empty(path);
        }
    } while (FindNextFileW(find, &data));
    FindClose(find);
    RemoveDirectoryW(folder.c_str());
}
} // namespace sndxtest
