#include "tools/mainprogram/options.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "tools/text.h"

namespace sndxtools
{
namespace
{
constexpr unsigned long longestTime = 24UL * 3600 * 1000;

struct Option
{
    const char* name;
    const char* value; // what stands for the value in the help, null for an option without one
    const char* help;
    std::function<void(MainProgramOptions&, const std::string&)> apply;
};

using Text = std::string MainProgramOptions::*;
using Flag = bool MainProgramOptions::*;

DWORD Number(const std::string& text, unsigned long least, unsigned long most)
{
    unsigned long number = 0;
    if (!ParseNumber(text, most, number) || number < least)
    {
        throw UsageError("'" + text + "' is not a number from " + std::to_string(least) + " to " +
                         std::to_string(most));
    }
    return static_cast<DWORD>(number);
}

Option TextOption(const char* name, const char* value, const char* help, Text field)
{
    return {name, value, help,
            [field](MainProgramOptions& options, const std::string& text)
            {
                if (text.empty())
                {
                    throw UsageError("an empty value");
                }
                options.*field = text;
            }};
}

Option FlagOption(const char* name, const char* help, Flag field)
{
    return {name, nullptr, help,
            [field](MainProgramOptions& options, const std::string&) { options.*field = true; }};
}

template <class Field>
Option NumberOption(const char* name, const char* value, const char* help, Field MainProgramOptions::*field,
                    unsigned long least, unsigned long most)
{
    return {name, value, help, [=](MainProgramOptions& options, const std::string& text) {
                options.*field = Number(text, least, most);
            }};
}

const std::vector<Option>& Options()
{
    using O = MainProgramOptions;
    static const std::vector<Option> options = {
        TextOption("--output", "FILE", "append readable text to FILE, not to standard output",
                   &O::outputFile),
        TextOption("--raw", "FILE", "append the exact bytes received to FILE", &O::rawFile),
        TextOption("--ready", "FILE", "create FILE once the pipe exists", &O::readyFile),
        TextOption("--pipe", "NAME", "name of the pipe (SendoraService)", &O::pipeName),
        NumberOption("--instances", "N", "instances of the pipe (1)", &O::instances, 1, 254),
        NumberOption("--default-timeout", "MS", "the pipe's default time-out (the system's)",
                     &O::defaultTimeout, 0, longestTime),
        NumberOption("--buffer", "BYTES", "the pipe's buffer in either direction (65536)", &O::buffer, 0,
                     16UL << 20),
        FlagOption("--busy", "hold every instance by a client of its own: the pipe is busy", &O::busy),
        FlagOption("--never-read", "accept connections and never read from them", &O::neverRead),
        NumberOption("--read-after", "MS", "wait after the connection before reading", &O::readAfter, 0,
                     longestTime),
        NumberOption("--close-early", "BYTES", "end each connection after that many bytes", &O::closeEarly, 0,
                     1UL << 30),
        FlagOption("--no-pipe", "do not make the pipe", &O::noPipe),
        NumberOption("--idle-after", "MS", "become idle so long after the pipe exists (0)", &O::idleAfter, 0,
                     longestTime),
        FlagOption("--exit-at-once", "end before doing anything", &O::exitAtOnce),
        NumberOption("--requests", "N", "end after N connections", &O::requests, 1, 1UL << 30),
        NumberOption("--duration", "MS", "end after that time at the latest (60000)", &O::duration, 1,
                     longestTime),
        FlagOption("--help", "show this text", &O::help),
    };
    return options;
}
} // namespace

MainProgramOptions ParseMainProgramOptions(const Arguments& arguments)
{
    MainProgramOptions parsed;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& name = arguments[i];
        const Option* found = nullptr;
        for (const Option& option : Options())
        {
            if (name == option.name)
            {
                found = &option;
            }
        }
        if (found == nullptr)
        {
            throw UsageError("unknown option '" + name + "'");
        }
        std::string value;
        if (found->value != nullptr)
        {
            if (++i == arguments.size())
            {
                throw UsageError(name + " needs a value");
            }
            value = arguments[i];
        }
        try
        {
            found->apply(parsed, value);
        }
        catch (const UsageError& error)
        {
            throw UsageError(name + ": " + error.what());
        }
    }
    return parsed;
}

std::string MainProgramHelp()
{
    std::string text = R"(usage: mainprogram [OPTION]...

Plays the product's main program: makes the control pipe, becomes idle and shows each
request that arrives, with everything that is wrong with it.

)";
    for (const Option& option : Options())
    {
        std::string name = std::string("  ") + option.name;
        if (option.value != nullptr)
        {
            name += std::string(" ") + option.value;
        }
        name.resize(std::max<std::size_t>(name.size() + 1, 25), ' ');
        text += name + option.help + "\n";
    }
    return text + R"(
The shell extension starts this program without arguments: further options are taken from
SENDORA_MAINPROGRAM_OPTIONS, split at blanks, double quotes around values with blanks.
Exit codes: 0 ended as asked; 1 the pipe or a file cannot be made; 2 wrong usage.
)";
}
} // namespace sndxtools
