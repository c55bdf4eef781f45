#pragma once
#include <ostream>

#include "tools/explorer/openmenus.h"
#include "tools/explorer/window.h"

namespace sndxtools
{
// Works a window as its options say, step by step from a timer: a menu keeps dispatching timers while it
// waits for keys, and those are posted one at a time, each chosen by looking at what is highlighted.
class Script final : public WindowObserver
{
  public:
    Script(Window& window, const ExplorerOptions& options, std::ostream& out);

    void Tick() override;
    void MenuEnded(const ContextMenu& menu, UINT id, HRESULT result) override;

  private:
    enum class Step
    {
        begin,
        opening,  // until the menu is open, and the entry to hover over is highlighted
        standing, // until the wait is over
        choosing, // until the entry to choose is highlighted
        ending
    };
    void BeginStanding();
    void Show();
    // Throws std::runtime_error when there is no such entry.
    MenuEntry Find(const std::string& textOrNumber) const;
    // Presses a key towards the entry; true when it is highlighted already.
    bool Reach(const MenuEntry& entry);
    // The same, and then chooses it. Throws std::runtime_error when it is no command or disabled.
    void Choose(const MenuEntry& entry);

    Window& window_;
    const ExplorerOptions& options_;
    std::ostream& out_;
    Step step_ = Step::begin;
    DWORD standingSince_ = 0; // tick count
};
} // namespace sndxtools
