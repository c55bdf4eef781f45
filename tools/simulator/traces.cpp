#include "tools/simulator/traces.h"

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
} // namespace

std::string FaultOfTrace(const std::string& content, const TraceExpectation& expected)
{
    if (!content.empty() && !content.ends_with("\r\n"))
    {
        return "the last line is not whole";
    }
    trace::Reader reader(std::make_unique<trace::MemorySource>(content));
    trace::MessageId last = trace::messageCount;
    for (trace::Line line; reader.Next(line);)
    {
        if (line.id == trace::messageCount || trace::EntryOf(line.id).error != line.error)
        {
            return "not in the catalogue of messages: " + std::string(line.text);
        }
        if (line.error && !IsExpectedError(line.id, expected.leaks))
        {
            return "an error line: " + std::string(line.text);
        }
        last = line.id;
    }
    return expected.ends && last != trace::H15 ? "the end is missing" : std::string();
}
} // namespace sndxtools::simulator
