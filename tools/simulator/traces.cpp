#include "tools/simulator/traces.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

namespace sndxtools::simulator
{
namespace
{
// "hh:mm:ss.mmm  tttt  " or "hh:mm:ss.mmm**tttt**" at that place of the line.
bool IsStamp(std::string_view line, std::size_t at)
{
    constexpr std::string_view forms[] = {"dd:dd:dd.ddd  dddd  ", "dd:dd:dd.ddd**dddd**"};
    const std::string_view found = line.substr(std::min(at, line.size()));
    return std::any_of(std::begin(forms), std::end(forms),
                       [found](std::string_view form)
                       {
                           return found.size() >= form.size() &&
                                  std::equal(form.begin(), form.end(), found.begin(),
                                             [](char wanted, char c) {
                                                 return wanted == 'd'
                                                            ? std::isdigit(static_cast<unsigned char>(c)) != 0
                                                            : c == wanted;
                                             });
                       });
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
} // namespace

std::string FaultOfTrace(const std::string& content, const TraceExpectation& expected)
{
    if (!content.empty() && !content.ends_with("\r\n"))
    {
        return "the last line is not whole";
    }
    std::istringstream lines(content);
    std::string last;
    for (std::string line; std::getline(lines, line);)
    {
        line.erase(line.find_last_not_of('\r') + 1);
        if (!IsStamp(line, 0))
        {
            // Line ends inside a message: behind the date of the header, the system's texts, the leak report.
            if (!line.empty() && !line.starts_with(" Info: "))
            {
                return "a line without a stamp: " + line;
            }
            continue;
        }
        const std::string_view text = std::string_view(line).substr(20);
        const bool error = line[12] == '*';
        for (std::size_t at = 20; at < line.size() && !(error && text.starts_with(' ')); ++at)
        {
            if (IsStamp(line, at))
            {
                return "two lines in one: " + line;
            }
        }
        if (error && !IsExpectedError(text, expected.leaks))
        {
            return "an error line: " + line;
        }
        last = text;
    }
    return expected.ends && last != std::string(68, '-') ? "the end is missing behind: " + last
                                                         : std::string();
}
} // namespace sndxtools::simulator
