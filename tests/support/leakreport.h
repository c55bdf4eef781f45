#pragma once
// Looks up the text of a leak in a trace file, independently of the tracker's way through the file.

#include <string>
#include <vector>

namespace sndxtest
{
// The physical lines of the file that begin as a trace line does, in order, without their ends. A line ends
// at CR, LF or CR LF.
inline std::vector<std::string> StampedLines(const std::string& content)
{
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < content.size())
    {
        const std::size_t end = std::min(content.find_first_of("\r\n", at), content.size());
        const std::string line = content.substr(at, end - at);
        if (line.size() > 8 && line[2] == ':' && line[5] == ':' && line[8] == '.')
        {
            lines.push_back(line);
        }
        at = end + (content.compare(end, 2, "\r\n") == 0 ? 2 : 1);
    }
    return lines;
}

inline std::string LeakLine(unsigned long long size, const std::string& function, const std::string& file,
                            long line, std::size_t traceLine)
{
    return "** " + std::to_string(size) + " Bytes allocated by " + function + " in " + file + " (line " +
           std::to_string(line) + ") after trace line " + std::to_string(traceLine);
}

inline std::string LeakStart(unsigned long long total)
{
    return "** --- Leak Segments Start (Total " + std::to_string(total) +
           " Bytes) --------------------------";
}

inline const std::string leakEnd =
    "** --- Leak Segments End ----------------------------------------------------\n Info: Use "
    "LDebugHeapIgnoreLeak for singleton allocated memory to prevent them being reported as leaks.";
} // namespace sndxtest
