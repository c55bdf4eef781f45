#include "tools/simulator/traces.h"

#include <algorithm>
#include <string_view>

#include "tools/simulator/plan.h"

namespace sndxtools::simulator
{
namespace
{
// "hh:mm:ss.mmm  tttt  " or "hh:mm:ss.mmm**tttt**" at that place of the line.
bool IsStamp(std::string_view line, std::size_t at)
{
    constexpr std::string_view form = "dd:dd:dd.ddd--dddd--";
    const std::string_view found = line.substr(std::min(at, line.size()), form.size());
    const auto fits = [&](char wanted, char c)
    {
        return wanted == 'd'   ? c >= '0' && c <= '9'
               : wanted == '-' ? c == found[12] && (c == ' ' || c == '*')
                               : c == wanted;
    };
    return found.size() == form.size() && std::equal(form.begin(), form.end(), found.begin(), fits);
}

bool IsExpectedError(std::string_view text, bool leaks)
{
    constexpr std::string_view always[] = {
        "LNamedPipe::_Open Pipe was busy",
        "LFile::_GetFolderFromPath szPath is too long", // a path that the simulator made so
        "LLockObject::Unlock Unlock called more than 5 seconds after lock.", // a busy machine
    };
    constexpr std::string_view deadThreads[] = {
        "LLockObject::~LLockObject  Not unlocked before destruction.",
        " ", // of the leak report
    };
    const auto begins = [text](std::string_view start) { return text.starts_with(start); };
    return std::any_of(std::begin(always), std::end(always), begins) ||
           (leaks && std::any_of(std::begin(deadThreads), std::end(deadThreads), begins));
}

// Takes the first line, without its line end, from the front of the content.
std::string_view TakeLine(std::string_view& content)
{
    const std::size_t end = content.find('\n');
    std::string_view line = content.substr(0, end);
    content.remove_prefix(end == content.npos ? content.size() : end + 1);
    while (line.ends_with('\r'))
    {
        line.remove_suffix(1);
    }
    return line;
}
} // namespace

std::string FaultOfTrace(const std::string& content, const TraceExpectation& expected)
{
    std::string_view rest = content;
    if (!rest.empty() && !rest.ends_with("\r\n"))
    {
        if (!expected.growing)
        {
            return "the last line is not whole";
        }
        rest = rest.substr(0, rest.rfind('\n') + 1);
    }
    std::string_view last;
    while (!rest.empty())
    {
        const std::string_view line = TakeLine(rest);
        if (!IsStamp(line, 0))
        {
            // Line ends inside a message: behind the date of the header, the system's texts, the leak report.
            if (!line.empty() && !line.starts_with(" Info: "))
            {
                return "a line without a stamp: " + std::string(line);
            }
            continue;
        }
        const std::string_view text = line.substr(20);
        const bool error = line[12] == '*';
        for (std::size_t at = 20; at < line.size() && !(error && text.starts_with(' ')); ++at)
        {
            if (IsStamp(line, at))
            {
                return "two lines in one: " + std::string(line);
            }
        }
        if (error && !IsExpectedError(text, expected.leaks))
        {
            return "an error line: " + std::string(line);
        }
        last = text;
    }
    return expected.ends && last != std::string(68, '-') ? "the end is missing behind: " + std::string(last)
                                                         : std::string();
}

std::string FaultOfLineCount(const std::string& content, const TracedLines& traced, std::uint64_t& lost)
{
    std::uint64_t written = 0;
    for (std::string_view rest = content; !rest.empty();)
    {
        written += IsStamp(TakeLine(rest), 0) ? 1 : 0;
    }
    lost = static_cast<std::uint64_t>(std::count_if(traced.late.begin(), traced.late.end(),
                                                    [&content](const std::string& line)
                                                    { return content.find(line) == content.npos; }));
    return written + lost == traced.count
               ? std::string()
               : std::to_string(traced.count) + " lines were to be written, " + std::to_string(written) +
                     " are there, and only " + std::to_string(lost) + " were given up after the time-out";
}

std::string FaultOfRequests(const std::string& content)
{
    constexpr std::string_view path = "  path ";
    constexpr std::string_view malformed = "  malformed: ";
    for (std::string_view rest = std::string_view(content).substr(0, content.rfind('\n') + 1); !rest.empty();)
    {
        const std::string_view line = TakeLine(rest);
        // Its sender was ended in the middle of it.
        const bool cut = line.starts_with("  malformed: the connection ended after ");
        const std::size_t text = line.find('"') + 1;
        const bool isPath = line.starts_with(path);
        if ((line.starts_with(malformed) && !cut) ||
            (isPath && !IsSelectedPath(std::string(line.substr(text, line.size() - text - 1)))))
        {
            return std::string(line);
        }
    }
    return {};
}
} // namespace sndxtools::simulator
