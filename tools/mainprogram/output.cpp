#include "tools/mainprogram/output.h"

#include <cstdio>
#include <stdexcept>

#include "tools/paths.h"

namespace sndxtools
{
AppendFile::AppendFile(const std::string& name)
{
    if (name.empty())
    {
        return;
    }
    file_ = CreateFileW(FilePath(name).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                        OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file_ == INVALID_HANDLE_VALUE)
    {
        throw std::runtime_error("cannot open '" + name + "': error " + std::to_string(GetLastError()));
    }
}

AppendFile::~AppendFile()
{
    if (IsOpen())
    {
        CloseHandle(file_);
    }
}

void AppendFile::Append(const void* bytes, std::size_t count)
{
    DWORD written = 0;
    SetFilePointerEx(file_, {}, nullptr, FILE_END);
    WriteFile(file_, bytes, static_cast<DWORD>(count), &written, nullptr);
}

void Output::Text(const std::string& text)
{
    if (text.empty())
    {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (text_.IsOpen())
    {
        text_.Append(text.data(), text.size());
        return;
    }
    // A program of the GUI subsystem may have no standard output; the text is lost then.
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void Output::Raw(const void* bytes, std::size_t count)
{
    const std::lock_guard lock(mutex_);
    if (raw_.IsOpen())
    {
        raw_.Append(bytes, count);
    }
}
} // namespace sndxtools
