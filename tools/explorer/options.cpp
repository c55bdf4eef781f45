#include "tools/explorer/options.h"

#include "tools/options.h"

namespace sndxtools
{
std::optional<ExplorerOptions> ParseExplorerOptions(const Arguments& arguments, std::ostream& out)
{
    ExplorerOptions options;
    std::string view = "large";
    CLI::App parser(
        "Shows a folder as the shell does: icons with the overlays of the registered overlay handlers, and "
        "a\n"
        "context menu (right mouse button, menu key) with the entries of the registered handlers. F5 reads "
        "the\n"
        "folder again; Enter or a double click opens an item.\n"
        "With --menu, --hover, --choose, --report or --screenshot the window works by itself and closes.",
        "explorer");
    SetUp(parser);
    parser.add_option("FOLDER", options.folder, "its full path")->required();
    parser.add_option("--view", view, "large icons, or small ones in a list")
        ->check(CLI::IsMember({"large", "small"}));
    parser.add_option("--place", options.place, "where the window stands, in pixels")
        ->delimiter(',')
        ->check(CLI::Range(0, 10000))
        ->type_name("X,Y,WIDTH,HEIGHT");
    CLI::Option* const select =
        parser.add_option("--select", options.selected, "select this item; may be repeated")
            ->take_all()
            ->allow_extra_args(false)
            ->type_name("NAME");
    parser.add_flag("--menu", options.menu, "open the context menu of the selected items")->needs(select);
    parser
        .add_option("--hover", options.hover,
                    "highlight this menu entry: its text, or its number in the report")
        ->needs(select)
        ->type_name("N|TEXT");
    parser.add_option("--choose", options.choose, "choose this menu entry")
        ->needs(select)
        ->type_name("N|TEXT");
    parser.add_flag("--report", options.report, "write what the window shows to standard output");
    parser.add_option("--screenshot", options.screenshot, "write a picture of the whole screen")
        ->type_name("FILE.bmp");
    parser.add_option("--ready", options.ready, "create FILE once the window shows the folder")
        ->type_name("FILE");
    parser.add_option("--wait", options.wait, "how long the window stands before report and picture (300)")
        ->check(CLI::Range(0, 600000))
        ->type_name("MS");
    parser.footer(
        "Exit code: 0 done, 1 something failed, 2 the command line cannot be understood, 3 a run by\n"
        "itself took longer than 30 seconds and --wait.");
    if (!Parse(parser, arguments, out))
    {
        return std::nullopt;
    }
    options.largeIcons = view == "large";
    return options;
}
} // namespace sndxtools
