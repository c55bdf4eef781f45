#include "tools/explorer/script.h"

#include <stdexcept>

#include "tools/explorer/report.h"
#include "tools/explorer/screenshot.h"
#include "tools/paths.h"

namespace sndxtools
{
Script::Script(Window& window, const ExplorerOptions& options, std::ostream& out)
    : window_(window), options_(options), out_(out)
{
}

void Script::Tick()
{
    switch (step_)
    {
    case Step::begin:
        if (!options_.OpensMenu())
        {
            BeginStanding();
            break;
        }
        step_ = Step::opening;
        window_.AskForMenu();
        break;
    case Step::opening:
        if (window_.OpenMenu() != nullptr && !OpenMenus(window_.OpenMenu()->Get()).empty() &&
            (options_.hover.empty() || Reach(Find(options_.hover))))
        {
            BeginStanding();
        }
        break;
    case Step::standing:
        if (GetTickCount() - standingSince_ < options_.wait)
        {
            break;
        }
        Show();
        if (options_.choose.empty())
        {
            step_ = Step::ending;
            window_.Close(0);
            break;
        }
        step_ = Step::choosing;
        break;
    case Step::choosing:
        Choose(Find(options_.choose));
        break;
    case Step::ending:
        break;
    }
}

void Script::BeginStanding()
{
    step_ = Step::standing;
    standingSince_ = GetTickCount();
}

void Script::Show()
{
    if (options_.report)
    {
        ReportFolder(out_, window_);
        if (window_.OpenMenu() != nullptr)
        {
            ReportMenu(out_, window_);
        }
        ReportStatus(out_, window_);
    }
    if (!options_.screenshot.empty())
    {
        TakeScreenshot(FilePath(options_.screenshot));
    }
}

EntryPath Script::Find(const std::string& entry) const
{
    EntryPath path = FindEntry(window_.OpenMenu()->Get(), entry);
    if (path.empty())
    {
        throw std::runtime_error("no menu entry " + Quoted(entry));
    }
    return path;
}

void Script::Choose(const EntryPath& path)
{
    const MENUITEMINFOW entry = EntryInfo(MenuOf(window_.OpenMenu()->Get(), path), path.back());
    if (entry.hSubMenu != nullptr || (entry.fState & MFS_GRAYED) != 0)
    {
        throw std::runtime_error("menu entry " + Quoted(options_.choose) + " cannot be chosen");
    }
    if (Reach(path))
    {
        step_ = Step::ending;
        window_.SendKey(VK_RETURN);
    }
}

bool Script::Reach(const EntryPath& path)
{
    const HMENU root = window_.OpenMenu()->Get();
    const std::vector<HMENU> open = OpenMenus(root);
    for (std::size_t level = 0; level < path.size(); ++level)
    {
        if (level >= open.size())
        {
            window_.SendKey(VK_RIGHT);
            return false;
        }
        if (Highlighted(open[level]) != path[level])
        {
            // A submenu of some other entry has the keys until it is closed.
            window_.SendKey(level + 1 < open.size() ? VK_ESCAPE : VK_DOWN);
            return false;
        }
    }
    return true;
}

void Script::MenuEnded(const ContextMenu& menu, UINT id, HRESULT result)
{
    if (id == 0)
    {
        throw std::runtime_error("the menu was closed without a command");
    }
    if (options_.report)
    {
        ReportCommand(out_, menu, id, result);
    }
    step_ = Step::ending;
    window_.Close(FAILED(result) ? 1 : 0);
}
} // namespace sndxtools
