#include "tools/shellhost/shellhost.h"

#include <algorithm>
#include <exception>

#include "tools/paths.h"
#include "tools/shellhost/commands.h"

namespace sndxtools
{
namespace
{
struct Command
{
    const char* name;
    const char* usage; // what follows the name
    const char* help;
    int (*run)(Host&, const Arguments&, std::ostream&);
};

constexpr Command commands[] = {
    {"overlay", "PATH...",
     "Tells for each path whether the overlay icon is drawn on it, then where the icon\n"
     "comes from and its priority.",
     &OverlayCommand},
    {"menu", "[--cmd-first N] [--cmd-last N] [--flags default-only] PATH...",
     "Shows what the context menu of the selected paths gains: texts, identifiers and\n"
     "help texts, and the handler's result.",
     &MenuCommand},
    {"invoke", "upload|download|delete PATH...",
     "Runs a command of the context menu on the selected paths. A number in place of\n"
     "the command's name is the offset that is passed to the handler.",
     &InvokeCommand},
    {"state-changed", "",
     "Announces to every process that has the module loaded that the account\n"
     "settings have changed.",
     &StateChangedCommand},
    {"unload-test", "",
     "Creates and releases objects of both classes, shows after each step whether the\n"
     "module can be unloaded, frees it and loads it again. Refused (1) when it says yes\n"
     "while an object lives, or no while none does.",
     &UnloadTestCommand},
    {"leak", "[PATH...]",
     "Gives a context-menu handler the paths (without any: some made-up ones), keeps one\n"
     "reference to it for ever, frees the module although it says that it is in use, and\n"
     "shows the leak report at the end of the trace file. There is none (1) in memory\n"
     "mode 5, which keeps no list of blocks.",
     &LeakCommand},
    {"misuse", "[--here] over-release|double-release|list",
     "Releases an object wrongly in a child process (this program with --here) and shows\n"
     "how the child ended and the error lines of its trace. 'list' tells what is done.\n"
     "There is no such misuse of a live object: both call an object that has ended. So\n"
     "that they touch no memory of others, the child first gets the object's memory back\n"
     "from the runtime. It ends without misuse (1) when the runtime does not hand that\n"
     "memory out again: in memory mode 5, with AddressSanitizer, and as a runtime may\n"
     "please. In mode 0 glibc and Wine 8 do hand it out. For double-release the child\n"
     "also puts back the object's function table, which its end has emptied.",
     &MisuseCommand},
};

#ifdef _WIN32
constexpr char defaultModule[] = "sndxdll.dll";
#else
constexpr char defaultModule[] = "sndxdll.so";
#endif

std::string CommandHelp(const Command& command)
{
    return std::string("usage: shellhost [OPTION]... ") + command.name + (*command.usage ? " " : "") +
           command.usage + "\n\n" + command.help + "\n";
}

std::string Help()
{
    std::string text = R"(usage: shellhost [--module PATH | --registered] COMMAND [ARGUMENT]...

Loads the shell extension as Explorer does and shows what it answers.

  --module PATH   the module's file, otherwise )";
    text += defaultModule;
    text += R"( beside this program
  --registered    create the objects by their registered classes (Windows only)
  --help          show this text; after a command, that command's help

Commands:
)";
    for (const Command& command : commands)
    {
        text += std::string("  ") + command.name + (*command.usage ? " " : "") + command.usage + "\n";
    }
    text += R"(  shell

'shell' reads commands from standard input, one a line, and keeps the module loaded between
them. Lines that begin with # are skipped; double quotes hold a path with blanks together.
Each answer ends with the command's exit code in brackets. 'quit' or the end of input ends
the program, with the highest of these codes.

Exit codes: 0 answered; 1 the module refused or a call failed; 2 wrong usage;
3 the module cannot be loaded or lacks an export.
)";
    return text;
}

class ShellHost
{
  public:
    ShellHost(Host& host, std::ostream& out, std::ostream& err) : host_(host), out_(out), err_(err) {}

    // One command with its arguments; throws what the command throws.
    int Run(const Arguments& line)
    {
        const auto found = std::find_if(std::begin(commands), std::end(commands),
                                        [&](const Command& command) { return line[0] == command.name; });
        if (found == std::end(commands))
        {
            throw UsageError("unknown command '" + line[0] + "'");
        }
        const Arguments arguments(line.begin() + 1, line.end());
        if (std::find(arguments.begin(), arguments.end(), "--help") != arguments.end())
        {
            out_ << CommandHelp(*found);
            return exitAnswered;
        }
        return found->run(host_, arguments, out_);
    }

    int RunLines(std::istream& in);

  private:
    Host& host_;
    std::ostream& out_;
    std::ostream& err_;
};

// Runs what may throw; reports and turns exceptions into exit codes.
template <class Action>
int Guarded(std::ostream& err, Action action)
{
    try
    {
        return action();
    }
    catch (const UsageError& error)
    {
        err << "shellhost: " << error.what() << "\nTry 'shellhost --help'.\n" << std::flush;
        return exitUsage;
    }
    catch (const ModuleError& error)
    {
        err << "shellhost: " << error.what() << "\n" << std::flush;
        return exitNoModule;
    }
    catch (const std::exception& error)
    {
        err << "shellhost: " << error.what() << "\n" << std::flush;
        return exitRefused;
    }
}

int ShellHost::RunLines(std::istream& in)
{
    int worst = exitAnswered;
    for (std::string text; std::getline(in, text);)
    {
        bool quit = false;
        bool empty = false;
        const int exitCode = Guarded(err_,
                                     [&]
                                     {
                                         const Arguments line = SplitCommandLine(text);
                                         empty = line.empty() || line[0].starts_with('#');
                                         quit = !empty && line[0] == "quit";
                                         return empty || quit ? int{exitAnswered} : Run(line);
                                     });
        if (quit)
        {
            break;
        }
        if (!empty)
        {
            worst = std::max(worst, exitCode);
            out_ << "[" << exitCode << "]\n" << std::flush;
        }
    }
    return worst;
}
} // namespace

std::vector<WideString> ItemPaths(const Arguments& arguments, std::size_t first)
{
    if (first >= arguments.size())
    {
        throw UsageError("a path is missing");
    }
    std::vector<WideString> paths;
    for (std::size_t i = first; i < arguments.size(); ++i)
    {
        paths.push_back(ItemPath(arguments[i]));
    }
    return paths;
}

int RunShellHost(const Arguments& arguments, std::istream& in, std::ostream& out, std::ostream& err)
{
    return Guarded(
        err,
        [&]() -> int
        {
            std::string modulePath;
            bool registered = false;
            std::size_t i = 0;
            for (; i < arguments.size() && arguments[i].starts_with("-"); ++i)
            {
                if (arguments[i] == "--help")
                {
                    out << Help() << std::flush;
                    return exitAnswered;
                }
                if (arguments[i] == "--registered")
                {
                    registered = true;
                }
                else if (arguments[i] == "--module")
                {
                    if (++i == arguments.size())
                    {
                        throw UsageError("--module needs a value");
                    }
                    modulePath = arguments[i];
                }
                else
                {
                    throw UsageError("unknown option '" + arguments[i] + "'");
                }
            }
            if (registered && !modulePath.empty())
            {
                throw UsageError("--module and --registered exclude each other");
            }
            const Arguments line(arguments.begin() + static_cast<std::ptrdiff_t>(i), arguments.end());
            if (line.empty())
            {
                throw UsageError("a command is missing");
            }
            Host host(modulePath.empty() ? ProgramFolder() + Wide(defaultModule) : FilePath(modulePath),
                      registered);
            ShellHost shellHost(host, out, err);
            if (line[0] == "shell" && line.size() == 1)
            {
                return shellHost.RunLines(in);
            }
            if (line[0] == "shell")
            {
                if (line[1] != "--help")
                {
                    throw UsageError("shell takes no arguments");
                }
                out << Help() << std::flush;
                return exitAnswered;
            }
            const int exitCode = shellHost.Run(line);
            out << std::flush;
            return exitCode;
        });
}
} // namespace sndxtools
