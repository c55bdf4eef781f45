#include "tools/commandline.h"

namespace sndxtools
{
Arguments SplitCommandLine(std::string_view line)
{
    Arguments arguments;
    std::string current;
    bool started = false;
    bool quoted = false;
    for (const char c : line)
    {
        if (c == '"')
        {
            quoted = !quoted;
            started = true;
        }
        else if (!quoted && (c == ' ' || c == '\t' || c == '\r' || c == '\n'))
        {
            if (started)
            {
                arguments.push_back(std::move(current));
                current.clear();
                started = false;
            }
        }
        else
        {
            current += c;
            started = true;
        }
    }
    if (quoted)
    {
        throw UsageError("a double quote is not closed");
    }
    if (started)
    {
        arguments.push_back(std::move(current));
    }
    return arguments;
}
} // namespace sndxtools
