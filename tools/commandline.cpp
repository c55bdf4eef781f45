#include "tools/commandline.h"

#include <iomanip>
#include <sstream>

namespace sndxtools
{
Arguments SplitCommandLine(const std::string& line)
{
    Arguments arguments;
    std::istringstream in(line);
    while ((in >> std::ws).peek() != std::istringstream::traits_type::eof())
    {
        std::string argument;
        if (!(in >> std::quoted(argument, '"', '\0')))
        {
            throw UsageError("a double quote is not closed");
        }
        arguments.push_back(std::move(argument));
    }
    return arguments;
}
} // namespace sndxtools
