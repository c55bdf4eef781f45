#include "tools/simulator/traces.h"

#include <algorithm>
#include <string_view>

#include "tools/simulator/plan.h"
#include "tools/trace/reader.h"

namespace sndxtools::simulator
{
namespace
{
bool IsExpectedError(trace::MessageId id, bool leaks)
{
    const bool always = id == trace::P04 ||  // the main program is busy
                        id == trace::X13a || // a path that the simulator made too long
                        id == trace::X19;    // a busy machine
    return always || (leaks && (id == trace::X20b || (id >= trace::K02 && id <= trace::K04)));
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
    std::string_view whole = content;
    if (!whole.empty() && !whole.ends_with("\r\n"))
    {
        if (!expected.growing)
        {
            return "the last line is not whole";
        }
        whole = whole.substr(0, whole.rfind('\n') + 1);
    }
    trace::Reader reader(std::make_unique<trace::MemorySource>(whole));
    trace::MessageId last = trace::messageCount;
    std::uint64_t number = 0;
    for (trace::Line line; reader.Next(line);)
    {
        if (line.number == number)
        {
            return "two lines in one: " + std::string(line.text);
        }
        if (line.id == trace::messageCount || trace::EntryOf(line.id).error != line.error)
        {
            return "not in the catalogue of messages: " + std::string(line.text);
        }
        if (line.error && !IsExpectedError(line.id, expected.leaks))
        {
            return "an error line: " + std::string(line.text);
        }
        last = line.id;
        number = line.number;
    }
    return expected.ends && last != trace::H15 ? "the end is missing" : std::string();
}

bool HasEnd(const std::string& content)
{
    return content.ends_with("  " + std::string(68, '-') + "\r\n");
}

std::string FaultOfLineCount(const std::string& content, const TracedLines& traced, std::uint64_t& lost)
{
    std::uint64_t written = 0;
    trace::Reader reader(std::make_unique<trace::MemorySource>(content));
    for (trace::Line line; reader.Next(line);)
    {
        written += line.isStamped ? 1 : 0;
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
