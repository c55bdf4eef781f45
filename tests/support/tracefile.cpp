#include "tests/support/tracefile.h"

#include <algorithm>
#include <string_view>

#include <gtest/gtest.h>

#include <shlobj.h>

#include "tests/support/child.h"

namespace sndxtest
{
namespace
{
bool StampAt(const std::string& content, std::size_t at)
{
    constexpr std::string_view pattern = "00:00:00.000??0000";
    const std::string_view text = std::string_view(content).substr(at, pattern.size());
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                      [](char c, char p) {
                          return p == '0' ? c >= '0' && c <= '9' : p == '?' ? c == ' ' || c == '*' : c == p;
                      });
}

// File name without folder and extension.
std::string OwnTitle()
{
    const std::string path = OwnPath();
    const std::size_t begin = path.find_last_of("/\\") + 1;
    return path.substr(begin, path.rfind('.') - begin);
}
} // namespace

std::string TraceFilePath(const std::string& title)
{
    WCHAR folder[MAX_PATH] = {};
    SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
    return Utf8(folder) + "\\tracedll_Sendora" + (title.empty() ? OwnTitle() : title) + ".txt";
}

std::string ReadWholeFile(const std::string& path)
{
    std::string content;
    const HANDLE file =
        CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return content;
    }
    char buffer[8192];
    DWORD read = 0;
    while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0)
    {
        content.append(buffer, read);
    }
    CloseHandle(file);
    return content;
}

void WriteWholeFile(const std::string& path, const std::string& bytes)
{
    const HANDLE file = CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << path << ": error " << GetLastError();
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    EXPECT_EQ(written, bytes.size());
    CloseHandle(file);
}

std::vector<TraceLine> ParseTrace(const std::string& content)
{
    std::vector<TraceLine> lines;
    std::size_t at = 0;
    while (at < content.size())
    {
        if (!StampAt(content, at))
        {
            ADD_FAILURE() << "no time stamp at byte " << at << ": " << content.substr(at, 80);
            return lines;
        }
        // The line ends at the CR LF in front of the next stamp, or at the end of the file.
        std::size_t end = content.find("\r\n", at);
        while (end != std::string::npos && end + 2 < content.size() && !StampAt(content, end + 2))
        {
            end = content.find("\r\n", end + 2);
        }
        if (end == std::string::npos)
        {
            ADD_FAILURE() << "line without its end: " << content.substr(at, 80);
            return lines;
        }
        const std::string line = content.substr(at, end - at);
        lines.push_back(
            {line.substr(0, 12), line.substr(14, 4), line.substr(12, 2) == "**", line.substr(20)});
        EXPECT_EQ(line.substr(12, 2), line.substr(18, 2)) << line;
        at = end + 2;
    }
    return lines;
}

Lines Texts(const std::vector<TraceLine>& lines)
{
    Lines texts;
    for (const TraceLine& line : lines)
    {
        texts.push_back((line.error ? "**" : "") + line.text);
    }
    return texts;
}

void RemoveTraceFiles(const std::string& title)
{
    const std::string path = TraceFilePath(title);
    DeleteFileW(Wide(path).c_str());
    for (int i = 1; i <= 9; ++i)
    {
        const std::string older = path.substr(0, path.size() - 4) + "." + std::to_string(i) + ".txt";
        DeleteFileW(Wide(older).c_str());
    }
}

TraceCapture::TraceCapture(const std::string& title) : path_(TraceFilePath(title))
{
    Restart();
}

void TraceCapture::Restart()
{
    offset_ = ReadWholeFile(path_).size();
}

std::vector<TraceLine> TraceCapture::Lines() const
{
    const std::string content = ReadWholeFile(path_);
    return content.size() <= offset_ ? std::vector<TraceLine>() : ParseTrace(content.substr(offset_));
}
} // namespace sndxtest
