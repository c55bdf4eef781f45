#include "tools/explorer/options.h"

#include <functional>

#include "tools/text.h"

namespace sndxtools
{
namespace
{
struct Option
{
    const char* name;
    const char* value; // what stands for the value in the help, null for an option without one
    const char* help;
    std::function<void(ExplorerOptions&, const std::string&)> apply;
};

void ParsePlace(const std::string& text, RECT& place)
{
    LONG* const fields[] = {&place.left, &place.top, &place.right, &place.bottom};
    std::size_t begin = 0;
    for (LONG* field : fields)
    {
        const bool last = field == &place.bottom;
        const std::size_t comma = last ? text.size() : text.find(',', begin);
        unsigned long number = 0;
        if (comma == std::string::npos || !ParseNumber(text.substr(begin, comma - begin), 10000, number))
        {
            throw UsageError("'" + text + "' is not X,Y,WIDTH,HEIGHT");
        }
        *field = static_cast<LONG>(number);
        begin = comma + 1;
    }
}

const std::vector<Option>& Options()
{
    using O = ExplorerOptions;
    using S = const std::string&;
    static const std::vector<Option> options = {
        {"--view", "large|small", "large icons, or small ones in a list",
         [](O& o, S text)
         {
             if (text != "large" && text != "small")
             {
                 throw UsageError("'" + text + "' is neither 'large' nor 'small'");
             }
             o.largeIcons = text == "large";
         }},
        {"--place", "X,Y,WIDTH,HEIGHT", "where the window stands, in pixels",
         [](O& o, S text) { ParsePlace(text, o.place); }},
        {"--select", "NAME", "select this item; may be repeated",
         [](O& o, S text) { o.selected.push_back(text); }},
        {"--menu", nullptr, "open the context menu of the selected items", [](O& o, S) { o.menu = true; }},
        {"--hover", "N|TEXT", "highlight this menu entry: its text, or its number in the report",
         [](O& o, S text) { o.hover = text; }},
        {"--choose", "N|TEXT", "choose this menu entry", [](O& o, S text) { o.choose = text; }},
        {"--report", nullptr, "write what the window shows to standard output",
         [](O& o, S) { o.report = true; }},
        {"--screenshot", "FILE.png", "write a picture of the whole screen",
         [](O& o, S text) { o.screenshot = text; }},
        {"--ready", "FILE", "create FILE once the window shows the folder",
         [](O& o, S text) { o.ready = text; }},
        {"--wait", "MS", "how long the window stands before report and picture (300)",
         [](O& o, S text)
         {
             unsigned long number = 0;
             if (!ParseNumber(text, 600000, number))
             {
                 throw UsageError("'" + text + "' is not a number of milliseconds up to 600000");
             }
             o.wait = number;
         }},
        {"--help", nullptr, "write this text", [](O& o, S) { o.help = true; }},
    };
    return options;
}

const Option& Find(const std::string& name)
{
    for (const Option& option : Options())
    {
        if (name == option.name)
        {
            return option;
        }
    }
    throw UsageError("unknown option '" + name + "'");
}
} // namespace

ExplorerOptions ParseExplorerOptions(const Arguments& arguments)
{
    ExplorerOptions options;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& argument = arguments[i];
        if (!argument.starts_with("--"))
        {
            if (!options.folder.empty())
            {
                throw UsageError("a second folder, '" + argument + "'");
            }
            options.folder = argument;
            continue;
        }
        const Option& option = Find(argument);
        if (option.value == nullptr)
        {
            option.apply(options, {});
            continue;
        }
        if (++i == arguments.size() || arguments[i].empty())
        {
            throw UsageError(argument + " needs a value");
        }
        option.apply(options, arguments[i]);
    }
    if (options.help)
    {
        return options;
    }
    if (options.folder.empty())
    {
        throw UsageError("a folder is missing");
    }
    if (options.OpensMenu() && options.selected.empty())
    {
        throw UsageError("a context menu needs --select");
    }
    return options;
}

std::string ExplorerHelp()
{
    std::string help =
        "Usage: explorer FOLDER [OPTION]…\n"
        "Shows a folder as the shell does: icons with the overlays of the registered overlay handlers, and "
        "a\n"
        "context menu (right mouse button, menu key) with the entries of the registered handlers. F5 reads "
        "the\n"
        "folder again; Enter or a double click opens an item.\n"
        "With --menu, --hover, --choose, --report or --screenshot the window works by itself and closes.\n\n";
    for (const Option& option : Options())
    {
        std::string left = option.name;
        if (option.value != nullptr)
        {
            left.append(" ").append(option.value);
        }
        left.resize(left.size() < 27 ? 27 : left.size() + 1, ' ');
        help += "  " + left + option.help + "\n";
    }
    return help +
           "\nExit code: 0 done, 1 something failed, 2 the command line cannot be understood, 3 a run by\n"
           "itself took longer than 30 seconds and --wait.\n";
}
} // namespace sndxtools
