#include "tools/explorer/report.h"

#include <set>

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

void ReportEntry(std::ostream& out, HMENU menu, int position, std::size_t number)
{
    const MENUITEMINFOW info = EntryInfo(menu, position);
    out << "  " << number << ". " << EntryText(menu, position);
    if (info.hSubMenu != nullptr)
    {
        out << " >";
    }
    else
    {
        out << " [" << info.wID << "]";
    }
    out << ((info.fState & MFS_GRAYED) != 0 ? ", disabled" : "")
        << ((info.fState & MFS_HILITE) != 0 ? ", highlighted" : "") << "\n";
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
    const std::vector<EntryPath> entries = AllEntries(menu.Get());
    for (const HMENU open : OpenMenus(menu.Get()))
    {
        out << "open menu:\n";
        for (std::size_t i = 0; i < entries.size(); ++i)
        {
            if (MenuOf(menu.Get(), entries[i]) == open)
            {
                ReportEntry(out, open, entries[i].back(), i + 1);
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

void ReportModules(std::ostream& out)
{
    std::set<WideString> files;
    const auto collect = [&files](HKEY root, const WideString& path)
    {
        for (const RegisteredHandler& handler : RegisteredHandlers(root, path))
        {
            files.insert(ServerFile(handler.classText));
        }
    };
    collect(HKEY_LOCAL_MACHINE, overlayHandlersKey);
    for (const WCHAR* kind : {filesKind, foldersKind})
    {
        collect(HKEY_CLASSES_ROOT, MenuHandlersKey(kind));
    }
    files.erase(WideString());
    for (const WideString& file : files)
    {
        out << "module " << Utf8(file)
            << (GetModuleHandleW(file.c_str()) == nullptr ? ": not loaded\n" : ": still loaded\n");
    }
    out.flush();
}
} // namespace sndxtools
