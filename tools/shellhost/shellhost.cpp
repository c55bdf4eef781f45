#include "tools/shellhost/shellhost.h"

#include <functional>
#include <map>

#include "tools/options.h"
#include "tools/paths.h"
#include "tools/shellhost/commands.h"

namespace sndxtools
{
namespace
{
#ifdef _WIN32
constexpr char defaultModule[] = "sndxdll.dll";
#else
constexpr char defaultModule[] = "sndxdll.so";
#endif

// The commands as subcommands of a parser, with the values that it reads for them.
class Commands
{
  public:
    explicit Commands(CLI::App& parser) : parser_(parser)
    {
        parser.require_subcommand(0, 1);
        CLI::App* const overlay = Add(
            "overlay",
            "Tells for each path whether the overlay icon is drawn on it, then where the\n"
            "icon comes from and its priority.",
            [this](Host& host, std::ostream& out) { return OverlayCommand(host, ItemPaths(paths_), out); });

        CLI::App* const menu =
            Add("menu",
                "Shows what the context menu of the selected paths gains: texts, identifiers\n"
                "and help texts, and the handler's result.",
                [this](Host& host, std::ostream& out)
                {
                    menu_.flags = flags_.empty() ? CMF_NORMAL : CMF_DEFAULTONLY;
                    return MenuCommand(host, menu_, ItemPaths(paths_), out);
                });
        menu->add_option("--cmd-first", menu_.cmdFirst, "the first identifier that is free (1)")
            ->type_name("N");
        menu->add_option("--cmd-last", menu_.cmdLast, "the last one (32767)")->type_name("N");
        menu->add_option("--flags", flags_, "what the shell asks for")
            ->check(CLI::IsMember({"default-only"}));

        CLI::App* const invoke = Add("invoke", "Runs a command of the context menu on the selected paths.",
                                     [this](Host& host, std::ostream& out)
                                     { return InvokeCommand(host, offset_, ItemPaths(paths_), out); });
        invoke
            ->add_option("COMMAND", offset_, "upload, download, delete, or the offset passed to the handler")
            ->required()
            ->transform(
                CLI::Transformer(std::map<std::string, WORD>{{"upload", 0}, {"download", 1}, {"delete", 2}}));
        for (CLI::App* const command : {overlay, menu, invoke})
        {
            command->add_option("PATH", paths_, "full paths")->required();
        }

        Add("state-changed",
            "Announces to every process that has the module loaded that the account\n"
            "settings have changed.",
            [](Host& host, std::ostream& out)
            {
                host.LoadedModule().StateChanged();
                out << "announced\n";
                return int{exitAnswered};
            });
        Add("unload-test",
            "Creates and releases objects of both classes, shows after each step whether\n"
            "the module can be unloaded, frees it and loads it again. Refused (1) when it\n"
            "says yes while an object lives, or no while none does.",
            [](Host& host, std::ostream& out) { return UnloadTestCommand(host, out); });
        CLI::App* const leak = Add(
            "leak",
            "Gives a context-menu handler the paths, keeps one reference to it for ever,\n"
            "frees the module although it says that it is in use, and shows the leak report\n"
            "at the end of the trace file. There is none (1) in memory mode 5, which keeps\n"
            "no list of blocks.",
            [this](Host& host, std::ostream& out)
            {
                const Arguments madeUp = {"C:\\Sendora\\Vertrag.txt", "C:\\Sendora\\Angebote\\Angebot 1.txt",
                                          "C:\\Sendora\\Bilder\\Urlaub.jpg"};
                return LeakCommand(host, ItemPaths(paths_.empty() ? madeUp : paths_), out);
            });
        leak->add_option("PATH", paths_, "full paths, otherwise some made-up ones");
    }

    // The command that the parser has found. Throws UsageError, and what the command throws.
    int Run(Host& host, std::ostream& out)
    {
        const auto chosen = parser_.get_subcommands();
        if (chosen.empty())
        {
            throw UsageError("a command is missing");
        }
        return actions_.at(chosen.front())(host, out);
    }

  private:
    using Action = std::function<int(Host&, std::ostream&)>;

    CLI::App* Add(const char* name, const char* help, Action action)
    {
        CLI::App* const command = parser_.add_subcommand(name, help);
        actions_.emplace(command, std::move(action));
        return command;
    }

    static Paths ItemPaths(const Arguments& arguments)
    {
        Paths paths;
        for (const std::string& path : arguments)
        {
            paths.push_back(ItemPath(path));
        }
        return paths;
    }

    CLI::App& parser_;
    std::map<const CLI::App*, Action> actions_;
    Arguments paths_;
    MenuOptions menu_;
    std::string flags_;
    WORD offset_ = 0;
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

int RunLine(Host& host, const Arguments& line, std::ostream& out)
{
    CLI::App parser("", "shellhost");
    SetUp(parser);
    Commands commands(parser);
    return Parse(parser, line, out) ? commands.Run(host, out) : int{exitAnswered};
}

int RunLines(Host& host, std::istream& in, std::ostream& out, std::ostream& err)
{
    int worst = exitAnswered;
    for (std::string text; std::getline(in, text);)
    {
        bool quit = false;
        bool empty = false;
        const int exitCode = Guarded(err,
                                     [&]
                                     {
                                         const Arguments line = SplitCommandLine(text);
                                         empty = line.empty() || line[0].starts_with('#');
                                         quit = !empty && line[0] == "quit";
                                         return empty || quit ? int{exitAnswered} : RunLine(host, line, out);
                                     });
        if (quit)
        {
            break;
        }
        if (empty)
        {
            continue;
        }
        worst = std::max(worst, exitCode);
        out << "[" << exitCode << "]\n" << std::flush;
    }
    return worst;
}
} // namespace

int RunShellHost(const Arguments& arguments, std::istream& in, std::ostream& out, std::ostream& err)
{
    return Guarded(
        err,
        [&]
        {
            CLI::App parser("Loads the shell extension as Explorer does and shows what it answers.",
                            "shellhost");
            SetUp(parser);
            std::string modulePath;
            bool registered = false;
            CLI::Option* const module = parser
                                            .add_option("--module", modulePath,
                                                        std::string("the module's file, otherwise ") +
                                                            defaultModule + " beside this program")
                                            ->type_name("PATH");
            parser
                .add_flag("--registered", registered,
                          "create the objects by their registered classes (Windows only)")
                ->excludes(module);
            parser.footer("Exit codes: 0 answered; 1 the module refused or a call failed; 2 wrong usage;\n"
                          "3 the module cannot be loaded or lacks an export.");
            Commands commands(parser);
            const CLI::App* const shell = parser.add_subcommand(
                "shell", "Reads commands from standard input, one a line, and keeps the module loaded\n"
                         "between them. Lines that begin with # are skipped; double quotes hold a path\n"
                         "with blanks together. Each answer ends with the command's exit code in\n"
                         "brackets. 'quit' or the end of input ends the program, with the highest of\n"
                         "these codes.");
            if (!Parse(parser, arguments, out))
            {
                return int{exitAnswered};
            }
            Host host(modulePath.empty() ? ProgramFolder() + Wide(defaultModule) : FilePath(modulePath),
                      registered);
            const int exitCode = shell->parsed() ? RunLines(host, in, out, err) : commands.Run(host, out);
            out << std::flush;
            return exitCode;
        });
}
} // namespace sndxtools
