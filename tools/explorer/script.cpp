#include "tools/explorer/script.h"

#include <algorithm>
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

MenuEntry Script::Find(const std::string& textOrNumber) const
{
    const auto entry = FindEntry(window_.OpenMenu()->Get(), textOrNumber);
    if (!entry)
    {
        throw std::runtime_error("no menu entry " + Quoted(textOrNumber));
    }
    return *entry;
}

void Script::Choose(const MenuEntry& entry)
{
    if (entry.info.hSubMenu != nullptr || (entry.info.fState & MFS_GRAYED) != 0)
    {
        throw std::runtime_error("menu entry " + Quoted(options_.choose) + " cannot be chosen");
    }
    if (Reach(entry))
    {
        step_ = Step::ending;
        window_.SendKey(VK_RETURN);
    }
}

bool Script::Reach(const MenuEntry& entry)
{
    const HMENU root = window_.OpenMenu()->Get();
    const std::vector<HMENU> open = OpenMenus(root);
    const auto level = std::ranges::find(open, entry.menu);
    if (level == open.end())
    {
        for (const MenuEntry& parent : AllEntries(root))
        {
            if (parent.info.hSubMenu == entry.menu && Reach(parent))
            {
                window_.SendKey(VK_RIGHT);
            }
        }
        return false;
    }
    if (Highlighted(entry.menu) == entry.position)
    {
        return true;
    }
    // A submenu of some other entry has the keys until it is closed.
    window_.SendKey(level + 1 != open.end() ? VK_ESCAPE : VK_DOWN);
    return false;
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
