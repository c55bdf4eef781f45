#include "tools/shellhost/tracefile.h"

#include <sstream>

#include <windows.h>
#include <shlobj.h>

#include "tools/paths.h"
#include "tools/results.h"

namespace sndxtools
{
std::string TraceContent(const WideString& path)
{
    std::string content;
    // A module that is still loaded may be writing.
    HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE)
    {
        char buffer[4096];
        DWORD read = 0;
        while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0)
        {
            content.append(buffer, read);
        }
        CloseHandle(file);
    }
    return content;
}

WideString TraceFilePath(const std::string& program)
{
    WCHAR folder[MAX_PATH] = {};
    Check("SHGetFolderPath", SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder));
    WideString title = program.empty() ? ProgramPath() : Wide(program);
    title.erase(0, title.find_last_of(TEXT("\\/")) + 1);
    const std::size_t dot = title.rfind(TEXT('.'));
    title.erase(dot == WideString::npos || dot == 0 ? title.size() : dot);
    return folder + WideString(TEXT("\\tracedll_Sendora")) + title + TEXT(".txt");
}

std::vector<std::string> TraceLines(const WideString& path)
{
    std::vector<std::string> lines;
    std::istringstream content(TraceContent(path));
    for (std::string line; std::getline(content, line);)
    {
        if (line.ends_with('\r'))
        {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}
} // namespace sndxtools
