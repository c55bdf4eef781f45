#include "tools/explorer/report.h"

#include "tools/explorer/openmenus.h"
#include "tools/results.h"

namespace sndxtools
{
namespace
{
std::string Name(const RegisteredHandler& registered)
{
    return Quoted(Utf8(registered.name)) + " " + Utf8(registered.classText);
}

void ReportEntry(std::ostream& out, const MenuEntry& entry, int number)
{
    out << "  " << number << ". " << entry.text
        << (entry.info.hSubMenu != nullptr ? " >" : " [" + std::to_string(entry.info.wID) + "]")
        << ((entry.info.fState & MFS_GRAYED) != 0 ? ", disabled" : "")
        << ((entry.info.fState & MFS_HILITE) != 0 ? ", highlighted" : "") << "\n";
}
} // namespace

void ReportFolder(std::ostream& out, const Window& window)
{
    out << "folder: " << Utf8(window.Folder().Path()) << "\n";
    const auto& handlers = window.Overlays().Handlers();
    out << "overlay handlers: " << handlers.size() << (handlers.empty() ? ", none is registered\n" : "\n");
    for (const OverlayHandler& handler : handlers)
    {
        out << "  " << Name(handler.registered) << ": ";
        if (handler.overlay == 0)
        {
            out << "not used, " << handler.problem << "\n";
            continue;
        }
        out << "overlay " << handler.overlay << ", priority " << handler.priority << ", icon "
            << handler.iconIndex << " of " << Utf8(handler.iconFile) << "\n";
    }
    const FolderView& view = window.View();
    out << "items: " << view.Count() << "\n";
    for (int item = 0; item < view.Count(); ++item)
    {
        const int overlay = view.Overlay(item);
        out << "  " << view.Text(item)
            << (window.Folder().Items()[static_cast<std::size_t>(item)].isFolder ? ": folder, " : ": file, ")
            << (overlay == 0 ? "no overlay" : "overlay " + std::to_string(overlay))
            << (view.IsSelected(item) ? ", selected" : "") << "\n";
    }
}

void ReportMenu(std::ostream& out, const Window& window)
{
    const ContextMenu& menu = *window.OpenMenu();
    out << "menu handlers of " << Utf8(menu.Kind()) << ": " << menu.Handlers().size()
        << (menu.Handlers().empty() ? ", none is registered\n" : "\n");
    for (const MenuHandler& handler : menu.Handlers())
    {
        out << "  " << Name(handler.registered) << ": ";
        if (handler.object)
        {
            out << handler.count << " identifiers from " << handler.first << "\n";
        }
        else
        {
            out << "adds nothing, " << handler.problem << "\n";
        }
    }
    const std::vector<MenuEntry> entries = AllEntries(menu.Get());
    for (const HMENU open : OpenMenus(menu.Get()))
    {
        out << "open menu:\n";
        int number = 0;
        for (const MenuEntry& entry : entries)
        {
            ++number;
            if (entry.menu == open)
            {
                ReportEntry(out, entry, number);
            }
        }
    }
}

void ReportStatus(std::ostream& out, const Window& window)
{
    out << "status: " << Quoted(window.StatusText()) << std::endl;
}

void ReportCommand(std::ostream& out, const ContextMenu& menu, UINT id, HRESULT result)
{
    out << "chosen: [" << id << "]";
    if (const MenuHandler* handler = menu.HandlerOf(id))
    {
        out << ", offset " << id - handler->first << " of " << Name(handler->registered)
            << ", InvokeCommand answered " << ResultText(result);
    }
    out << std::endl;
}
} // namespace sndxtools
