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
            (options_.hover.empty() || Reach(options_.hover)))
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
        if (Reach(options_.choose))
        {
            step_ = Step::ending;
            window_.SendKey(VK_RETURN);
        }
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

bool Script::Reach(const std::string& entry)
{
    const HMENU root = window_.OpenMenu()->Get();
    const EntryPath path = FindEntry(root, entry);
    if (path.empty())
    {
        throw std::runtime_error("no menu entry " + Quoted(entry));
    }
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
