#pragma once
// Options by CLI11, with what is the same in all our programs. Its header takes long to compile: one source
// of each program includes this one.

#include <algorithm>
#include <ostream>

#include <CLI/CLI.hpp>

#include "tools/commandline.h"

namespace sndxtools
{
// For a new parser, before it gets its options: the same habits on every target, and of repeated values the
// last one counts.
inline void SetUp(CLI::App& parser)
{
    parser.allow_windows_style_options(false); // '/' may begin a path
    parser.option_defaults()->take_last();
    parser.get_formatter()->column_width(32);
}

// False when help was asked for; it is written then. Throws UsageError.
inline bool Parse(CLI::App& parser, Arguments arguments, std::ostream& out)
{
    std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
    try
    {
        parser.parse(std::move(arguments));
        return true;
    }
    catch (const CLI::CallForHelp&)
    {
        out << parser.help() << std::flush;
        return false;
    }
    catch (const CLI::ParseError& error)
    {
        throw UsageError(error.what());
    }
}
} // namespace sndxtools
