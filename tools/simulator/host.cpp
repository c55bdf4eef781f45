#include "tools/simulator/host.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

#include "tools/results.h"
#include "tools/shellhost/tracefile.h"
#include "tools/simulator/holdings.h"
#include "tools/simulator/traces.h"
#include "tools/simulator/worker.h"

namespace sndxtools::simulator
{
namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class Host
{
  public:
    Host(const HostPlan& plan, Faults& faults) : plan_(plan), faults_(faults), random_(plan.ownSeed)
    {
        Check("CoInitializeEx", CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    }
    ~Host() { CoUninitialize(); }

    void Run()
    {
        WatchTracedLines();
        if (plan_.manner == HostManner::announcer)
        {
            Announce();
            return;
        }
        do
        {
            Live();
            NoteHoldings();
        } while (!IsOver(end_));
    }

  private:
    bool IsOver(Clock::time_point end) const
    {
        return Clock::now() >= end || world_->ending != 0 || faults_.Any();
    }

    // One life of the module in the process.
    void Live()
    {
        TakeTracedLines();
        {
            const Module module(plan_.module);
            Use(module);
#ifdef _WIN32 // the system, too, holds the module, and may only mark it at the first call
            CoFreeUnusedLibrariesEx(0, 0);
            CoFreeUnusedLibrariesEx(0, 0);
#endif
            if (module.CanUnloadNow() != S_OK)
            {
                faults_.Add("an object lives behind the last release");
            }
        }
        if (Module::IsLoaded(plan_.module))
        {
            faults_.Add("the module stays loaded");
        }
        ExamineTrace();
        ++world_->lives;
    }

    void Use(const Module& module)
    {
        ComRef<IShellIconOverlayIdentifier> overlay;
        Check("CreateInstance",
              module.ClassFactory(contract::overlayClass)
                  ->CreateInstance(nullptr, IID_IShellIconOverlayIdentifier, overlay.Receive()));
        if (plan_.manner == HostManner::storm)
        {
            Work(module, *overlay.Get(), plan_.threads, settled_);
            NoteHoldings();
            Work(module, *overlay.Get(), plan_.threads, end_);
            NoteHoldings();
            return;
        }
        pause_ = milliseconds(std::vector{0, 0, 2, 10, 30}[random_() % 5]);
        const Clock::time_point end = Clock::now() + milliseconds(50 + random_() % 1500);
        Work(module, *overlay.Get(), 2 + random_() % 3, std::min(end, end_));
    }

    // So many threads at work until that time, this one among them; or until the process ends.
    void Work(const Module& module, IShellIconOverlayIdentifier& overlay, std::uint64_t count,
              Clock::time_point end)
    {
        const auto work = [&](std::uint64_t seed, bool isMain)
        {
            try
            {
                Worker worker(plan_, module, overlay, world_, faults_, seed, isMain);
                while (plan_.end == HostEnd::inOrder ? !IsOver(end) : !faults_.Any())
                {
                    worker.Step();
                    std::this_thread::sleep_for(pause_);
                }
            }
            catch (const std::exception& error)
            {
                faults_.Add(error.what());
            }
        };
        std::vector<std::jthread> threads;
        while (threads.size() + 1 < count)
        {
            threads.emplace_back(work, random_(), false);
        }
        if (plan_.end == HostEnd::inOrder)
        {
            work(random_(), true);
            return;
        }
        while (!IsOver(end_))
        {
            std::this_thread::sleep_for(milliseconds(5));
        }
        if (plan_.end == HostEnd::terminated)
        {
            TerminateProcess(GetCurrentProcess(), faults_.Any() ? 3 : terminatedCode);
        }
        ExitProcess(faults_.Any() ? 3 : 0);
    }

    void Announce()
    {
        const Module module(plan_.module);
        while (!IsOver(end_))
        {
            module.StateChanged();
            ++world_->changes;
            std::this_thread::sleep_for(milliseconds(random_() % 250));
        }
    }

    void ExamineTrace()
    {
        const std::string content = TraceContent(TraceFilePath());
        const TracedLines traced = TakeTracedLines();
        std::string wrong = FaultOfTrace(
            content, {.ends = !plan_.sharedTrace, .leaks = plan_.sharedTrace, .growing = plan_.sharedTrace});
        if (!plan_.sharedTrace)
        {
            std::uint64_t lost = 0;
            wrong = wrong.empty() ? FaultOfLineCount(content, traced, lost) : wrong;
            world_->lines += traced.count;
            world_->lostLines += lost;
        }
        if (!wrong.empty())
        {
            faults_.Add("its trace: " + wrong);
        }
    }

    // Holds what the process has against what it had when the system had opened for good what it opens at the
    // first use of this and that.
    void NoteHoldings()
    {
        constexpr std::int64_t handleSlack = 4; // of threads that are just ending
        constexpr std::int64_t memorySlack = 32 * 1024;
        if (Clock::now() < settled_)
        {
            return;
        }
        const Holdings now = Holdings::Now();
        first_ = first_.value_or(now);
        const std::int64_t handles = now.handles - first_->handles;
        const std::int64_t kilobytes = now.kilobytes - first_->kilobytes;
        if (handles > handleSlack || kilobytes > memorySlack)
        {
            faults_.Add("it holds " + std::to_string(handles) + " handles and " + std::to_string(kilobytes) +
                        " KB more than before");
        }
        if (plan_.lasting)
        {
            world_->moreHandles = handles;
            world_->moreKilobytes = kilobytes;
        }
    }

    const HostPlan& plan_;
    Faults& faults_;
    const World world_;
    Random random_;
    const Clock::time_point begin_ = Clock::now();
    const Clock::time_point settled_ = begin_ + milliseconds(plan_.milliseconds / 4);
    const Clock::time_point end_ = begin_ + milliseconds(plan_.milliseconds);
    milliseconds pause_{0}; // of each thread between what it does
    std::optional<Holdings> first_;
};
} // namespace

int RunHost(const HostPlan& plan, std::ostream& out)
{
    Faults faults(out);
    try
    {
        Host(plan, faults).Run();
    }
    catch (const std::exception& error)
    {
        faults.Add(error.what());
    }
    return faults.Any() ? 3 : 0;
}
} // namespace sndxtools::simulator
