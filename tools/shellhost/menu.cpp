#include "tools/dropdata.h"
#include "tools/menuhandler.h"
#include "tools/shellhost/commands.h"

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
        const auto help = MenuHelpText(handler, id - cmdFirst);
        out << "  [" << id << "]  " << (help ? Quoted(*help) : std::string("no help text")) << "\n";
    }
}
} // namespace

ComRef<IContextMenu> MenuHandlerForSelection(Host& host, const Paths& paths)
{
    const auto data = ComRef<IDataObject>::Adopt(new DropData(paths));
    return MenuForSelection(host.CreateHandler<IShellExtInit>(contract::menuClass, IID_IShellExtInit),
                            data.Get(), nullptr);
}

int MenuCommand(Host& host, const MenuOptions& options, const Paths& paths, std::ostream& out)
{
    const auto handler = MenuHandlerForSelection(host, paths);
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
