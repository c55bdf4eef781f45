#include <iterator>
#include <optional>

#include <windows.h>
#include <shlobj.h>

#include "tools/shellhost/commands.h"
#include "tools/shellhost/selection.h"

namespace sndxtools
{
namespace
{
class PopupMenu
{
  public:
    PopupMenu() : menu_(CreatePopupMenu()) {}
    ~PopupMenu() { DestroyMenu(menu_); }
    PopupMenu(const PopupMenu&) = delete;
    PopupMenu& operator=(const PopupMenu&) = delete;
    HMENU Get() const { return menu_; }

  private:
    HMENU menu_;
};

struct MenuOptions
{
    UINT cmdFirst = 1;
    UINT cmdLast = 0x7FFF; // the range that the shell hands to its handlers
    UINT flags = CMF_NORMAL;
    std::vector<WideString> paths;
};

MenuOptions ParseMenuOptions(const Arguments& arguments)
{
    MenuOptions options;
    std::size_t i = 0;
    while (i < arguments.size() && arguments[i].starts_with("--"))
    {
        const std::string& name = arguments[i];
        if (name != "--cmd-first" && name != "--cmd-last" && name != "--flags")
        {
            throw UsageError("unknown option '" + name + "'");
        }
        if (i + 1 == arguments.size())
        {
            throw UsageError(name + " needs a value");
        }
        const std::string& value = arguments[i + 1];
        i += 2;
        if (name == "--flags")
        {
            if (value != "default-only")
            {
                throw UsageError("--flags knows only 'default-only'");
            }
            options.flags = CMF_DEFAULTONLY;
            continue;
        }
        unsigned long number = 0;
        if (!ParseNumber(value, 0xFFFFFFFFul, number))
        {
            throw UsageError(
                std::string(name).append(": '").append(value).append("' is not a number of 32 bits"));
        }
        (name == "--cmd-first" ? options.cmdFirst : options.cmdLast) = static_cast<UINT>(number);
    }
    options.paths = ItemPaths(arguments, i);
    return options;
}

std::optional<std::string> HelpText(IContextMenu& handler, UINT_PTR offset)
{
    WCHAR text[MAX_PATH] = {};
    // The shell passes the wide buffer through the narrow parameter.
    const HRESULT result =
        handler.GetCommandString(offset, GCS_HELPTEXTW, nullptr, reinterpret_cast<LPSTR>(text), MAX_PATH);
    if (FAILED(result))
    {
        return std::nullopt;
    }
    return Utf8(text);
}

void PrintItems(HMENU menu, IContextMenu& handler, UINT cmdFirst, int depth, std::ostream& out)
{
    for (int position = 0; position < GetMenuItemCount(menu); ++position)
    {
        WCHAR text[MAX_PATH] = {};
        GetMenuStringW(menu, static_cast<UINT>(position), text, MAX_PATH, MF_BYPOSITION);
        out << std::string(static_cast<std::size_t>(depth) * 4, ' ') << Utf8(text);
        if (HMENU submenu = GetSubMenu(menu, position))
        {
            out << " >\n";
            PrintItems(submenu, handler, cmdFirst, depth + 1, out);
            continue;
        }
        const UINT id = GetMenuItemID(menu, position);
        const auto help = HelpText(handler, id - cmdFirst);
        out << "  [" << id << "]  " << (help ? Quoted(*help) : std::string("no help text")) << "\n";
    }
}
} // namespace

int MenuCommand(Host& host, const Arguments& arguments, std::ostream& out)
{
    const MenuOptions options = ParseMenuOptions(arguments);
    const auto handler = MenuHandlerForSelection(host, options.paths);
    const PopupMenu menu;
    const HRESULT result =
        handler->QueryContextMenu(menu.Get(), 0, options.cmdFirst, options.cmdLast, options.flags);
    PrintItems(menu.Get(), *handler.Get(), options.cmdFirst, 0, out);
    out << "result: " << ResultText(result) << ", ";
    if (FAILED(result))
    {
        out << "the handler adds nothing for this selection\n";
        return exitRefused;
    }
    out << LOWORD(result) << " command identifiers used\n";
    return exitAnswered;
}
} // namespace sndxtools
