#pragma once
#include <atomic>
#include <chrono>
#include <mutex>
#include <ostream>
#include <string>

#include <windows.h>
#include <shlobj.h>

#include "tools/shellhost/module.h"
#include "tools/simulator/host.h"
#include "tools/simulator/plan.h"
#include "tools/simulator/world.h"

namespace sndxtools::simulator
{
// Tells the first fault of the process, whichever thread sees it.
class Faults
{
  public:
    explicit Faults(std::ostream& out) : out_(out) {}
    void Add(const std::string& text)
    {
        const std::lock_guard lock(mutex_);
        if (!any_.exchange(true))
        {
            out_ << text << std::endl;
        }
    }
    bool Any() const { return any_; }

  private:
    std::ostream& out_;
    std::mutex mutex_;
    std::atomic<bool> any_ = false;
};

// One thread of a host, an apartment of its own: it uses only the objects that it made, but for the overlay,
// which the shell shares between threads. Made and used on that thread.
class Worker
{
  public:
    // The main one may get objects through the system, which then holds the module for its apartment.
    Worker(const HostPlan& plan, const Module& module, IShellIconOverlayIdentifier& overlay,
           const World& world, Faults& faults, std::uint64_t seed, bool isMain);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Does one thing and holds what comes of it against what may come. Throws CallError.
    void Step();

  private:
    void Expect(bool holds, const std::string& what);
    template <class Question>
    void AskAbout(unsigned folder, const char* what, Question belongs);
    void AskOverlay();
    void Outside();
    void UseModule();
    void Announce();
    void UseMenu();
    void AskMenu(IContextMenu& menu, unsigned folder, bool empty);
    void AskHelp(IContextMenu& menu);
    bool MayStartProgram() const;
    void Send(IContextMenu& menu, std::size_t paths);
    ComRef<IShellExtInit> NewMenu();

    const HostPlan& plan_;
    const Module& module_;
    IShellIconOverlayIdentifier& overlay_;
    const World& world_;
    Faults& faults_;
    Random random_;
    const bool isMain_;
};
} // namespace sndxtools::simulator
