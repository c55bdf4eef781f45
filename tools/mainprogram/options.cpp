#include "tools/mainprogram/options.h"

#include "tools/options.h"

namespace sndxtools
{
std::optional<MainProgramOptions> ParseMainProgramOptions(const Arguments& arguments, std::ostream& out)
{
    constexpr DWORD longest = 24 * 3600 * 1000;
    MainProgramOptions parsed;
    CLI::App parser("Plays the product's main program: makes the control pipe, becomes idle and shows each\n"
                    "request that arrives, with everything that is wrong with it.",
                    "mainprogram");
    SetUp(parser);
    const auto file = [&parser](const char* name, std::string& value, const char* help)
    { parser.add_option(name, value, help)->type_name("FILE"); };
    const auto number = [&parser](const char* name, auto& value, DWORD least, DWORD most, const char* help)
    { parser.add_option(name, value, help)->check(CLI::Range(least, most))->type_name("N"); };

    file("--output", parsed.outputFile, "append readable text to FILE, not to standard output");
    file("--raw", parsed.rawFile, "append the exact bytes received to FILE");
    file("--ready", parsed.readyFile, "create FILE once the pipe exists");
    parser.add_option("--pipe", parsed.pipeName, "name of the pipe")
        ->type_name("NAME")
        ->capture_default_str();
    number("--instances", parsed.instances, 1, 254, "instances of the pipe (1)");
    number("--default-timeout", parsed.defaultTimeout, 0, longest,
           "the pipe's default time-out in ms (the system's)");
    number("--buffer", parsed.buffer, 0, 16 << 20, "the pipe's buffer in either direction in bytes (65536)");
    parser.add_flag("--busy", parsed.busy, "hold every instance by a client of its own: the pipe is busy");
    parser.add_flag("--never-read", parsed.neverRead, "accept connections and never read from them");
    number("--read-after", parsed.readAfter, 0, longest, "ms to wait after the connection before reading");
    parser.add_flag("--flood", parsed.flood,
                    "fill the way back before reading: nobody has asked for an answer");
    number("--close-early", parsed.closeEarly, 0, 1 << 30, "end each connection after that many bytes");
    parser.add_flag("--no-pipe", parsed.noPipe, "do not make the pipe");
    number("--idle-after", parsed.idleAfter, 0, longest, "become idle so many ms after the pipe exists (0)");
    parser.add_flag("--exit-at-once", parsed.exitAtOnce, "end before doing anything");
    number("--requests", parsed.requests, 1, 1 << 30, "end after that many connections");
    number("--duration", parsed.duration, 1, longest, "end after that many ms at the latest (60000)");
    parser.footer(
        "The shell extension starts this program without arguments: further options are taken from\n"
        "SENDORA_MAINPROGRAM_OPTIONS, split at blanks, double quotes around values with blanks.\n"
        "Exit codes: 0 ended as asked; 1 the pipe or a file cannot be made; 2 wrong usage.");
    return Parse(parser, arguments, out) ? std::optional(parsed) : std::nullopt;
}
} // namespace sndxtools
