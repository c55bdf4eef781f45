#include "tools/simulator/director.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include <windows.h>

#include "tools/contract.h"
#include "tools/paths.h"
#include "tools/shellhost/module.h"
#include "tools/shellhost/tracefile.h"
#include "tools/simulator/host.h"
#include "tools/simulator/plan.h"
#include "tools/simulator/process.h"
#include "tools/simulator/settings.h"
#include "tools/simulator/traces.h"
#include "tools/simulator/world.h"

namespace sndxtools::simulator
{
namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
constexpr Clock::time_point never = Clock::time_point::max();
#ifdef _WIN32 // the system ends the other threads of a process first
constexpr bool endsBusyThreads = true;
#else
constexpr bool endsBusyThreads = false;
#endif

// The program under other names, beside it. The first one is there from start to end; of the last one several
// may be, which share a trace.
constexpr const char* lasting = "simulated explorer";
constexpr const char* twin = "simulated zwilling";
constexpr const char* names[] = {"simulated dllhost", "simulated browser", twin, twin};

struct RunningHost
{
    std::string commandLine;
    std::string name; // of its program, and so of its trace
    HostEnd end;
    Clock::time_point due; // when it has ended by itself
    Clock::time_point kill;
    std::unique_ptr<const Process> process;
    bool killed = false;
};

class Director
{
  public:
    Director(const RunPlan& plan, std::ostream& out)
        : plan_(plan), out_(out), random_(plan.seed), module_(std::in_place, plan.module)
    {
        // For those that the module starts.
        Check("SetEnvironmentVariable",
              SetEnvironmentVariableW(
                  Wide(contract::mainProgramOptions).c_str(),
                  Wide("--duration 1500 --idle-after 200 --output \"" + startedOutput_ + "\"").c_str())
                  ? S_OK
                  : ErrorResult(GetLastError()));
        RegisterClasses(plan.module);
    }
    ~Director()
    {
        hosts_.clear();
        RegisterClasses({});
    }

    int Run()
    {
        Settle();
        const Clock::time_point end = Clock::now() + std::chrono::seconds(plan_.seconds);
        StartLastingHost();
        while (Clock::now() < end && fault_.empty())
        {
            StartHosts();
            ServeRequests();
            if (random_() % 4 == 0)
            {
                Settle();
            }
            LookAfterHosts();
            std::this_thread::sleep_for(milliseconds(50));
        }
        world_->ending = 1;
        mainProgram_.reset(); // requests that wait for it come back
        while (!hosts_.empty() && fault_.empty())
        {
            LookAfterHosts();
            std::this_thread::sleep_for(milliseconds(20));
        }
        ExamineRequests();
        module_.reset();
        Examine("the trace of this program", {}, {.ends = true});
        ClearSettings();
        if (fault_.empty() && world_->answers == 0)
        {
            fault_ = "no host has asked anything";
        }
        Report();
        return fault_.empty() ? 0 : 3;
    }

  private:
    void Report()
    {
        out_ << started_ << " hosts, " << killed_ << " of them killed, " << busyEnds_
             << " ended under busy threads, " << cutEnds_ << " of these without the end of the trace; "
             << world_->lives << " lives of the module that ended in order; " << epoch_
             << " changes of the settings, " << world_->changes << " other announcements\n"
             << world_->answers << " answers about folders, " << world_->menus << " menus, "
             << world_->requests << " requests, " << served_ << " main programs\n"
             << world_->lines << " trace lines counted in the lives that ended in order, "
             << world_->lostLines << " of them lost after the time-out\n"
             << "the host that stays: " << world_->moreHandles << " handles and " << world_->moreKilobytes
             << " KB more at its end than after a quarter of its time\n";
        if (!fault_.empty())
        {
            out_ << "seed " << plan_.seed << ": " << fault_ << "\n";
        }
        out_ << std::flush;
    }

    void Settle()
    {
        const std::uint32_t next = epoch_ + 1;
        world_->announced = next;
        WriteSettings(SettingsOf(plan_.seed, next), plan_.mainProgram);
        // Somebody else may have announced a change and loaded the table while it was written. Two changes
        // within one tick are one; so this one comes in a later tick.
        for (const DWORD written = GetTickCount(); GetTickCount() == written;)
        {
            Sleep(1);
        }
        module_->StateChanged();
        world_->settled = next;
        epoch_ = next;
    }

    void StartHost(const std::string& name, HostManner manner, HostEnd end, std::uint64_t ownSeed,
                   unsigned duration, Clock::time_point kill)
    {
        const std::string line =
            "\"" + folder_ + name + extension_ + "\" host --module \"" + Utf8(plan_.module) + "\" --seed " +
            std::to_string(plan_.seed) + " --own-seed " + std::to_string(ownSeed) + " --milliseconds " +
            std::to_string(duration) + " --manner " + std::to_string(static_cast<int>(manner)) + " --end " +
            std::to_string(static_cast<int>(end)) + " --threads " + std::to_string(plan_.threads) +
            (name == twin ? " --shared-trace" : "") + (name == lasting ? " --lasting" : "");
        // What a request may wait for besides is a main program, of which none lives longer than 25 seconds.
        const Clock::time_point due = Clock::now() + milliseconds(duration) + std::chrono::seconds(35);
        hosts_.push_back({line, name, end, due, kill, std::make_unique<Process>(line)});
        ++started_;
    }
    void StartLastingHost()
    {
        StartHost(lasting, plan_.threads == 0 ? HostManner::shell : HostManner::storm, HostEnd::inOrder,
                  plan_.seed, plan_.seconds * 1000, never);
    }
    void StartHosts()
    {
        while (hosts_.size() < plan_.hosts)
        {
            Random random = StreamOf(plan_.seed, Kind::host, started_);
            const std::string name = names[(started_ + random() % 2) % std::size(names)];
            if (name != twin && IsRunning(name))
            {
                break; // one at a time
            }
            const auto duration = static_cast<unsigned>(200 + random() % 4000);
            const Clock::time_point kill =
                random() % 6 == 0 ? Clock::now() + milliseconds(random() % duration) : never;
            const std::uint64_t way = plan_.threads == 0 ? random() % 8 : 7;
            const HostEnd end = way < 2 && endsBusyThreads ? HostEnd::underBusyThreads
                                : way == 2                 ? HostEnd::terminated
                                                           : HostEnd::inOrder;
            StartHost(name, plan_.threads == 0 ? HostManner::shell : HostManner::announcer, end, random(),
                      duration, kill);
        }
    }
    bool IsRunning(const std::string& name) const
    {
        return std::any_of(hosts_.begin(), hosts_.end(), [&](const auto& host) { return host.name == name; });
    }

    void ServeRequests()
    {
        if (mainProgram_)
        {
            if (Clock::now() >= mainProgramKill_)
            {
                mainProgram_->Kill();
            }
            if (mainProgram_->HasEnded())
            {
                mainProgram_.reset();
                ExamineRequests();
            }
        }
        else if (plan_.threads == 0 && random_() % 20 == 0)
        {
            StartMainProgram();
        }
    }
    void StartMainProgram()
    {
        // Soon the one that takes nothing and stays, so that even a short run has it.
        constexpr unsigned silent = 1;
        constexpr const char* manners[] = {"",
                                           "--never-read --buffer 0 --instances 4 --duration 25000",
                                           "--never-read",
                                           "--busy",
                                           "--close-early 100",
                                           "--read-after 500",
                                           "--exit-at-once",
                                           "--flood --instances 2"};
        const unsigned manner = served_ % std::size(manners);
        mainProgram_.emplace("\"" + Utf8(plan_.mainProgram) +
                             "\" --duration 3000 --idle-after 0 --output \"" + ownOutput_ + "\" " +
                             manners[manner]);
        const bool dies = manner != silent && served_ % 3 == 2;
        mainProgramKill_ = dies ? Clock::now() + milliseconds(random_() % 2000) : never;
        ++served_;
    }
    void ExamineRequests()
    {
        for (const std::string& output : {ownOutput_, startedOutput_})
        {
            const WideString file = FilePath(output);
            const std::string wrong = FaultOfRequests(TraceContent(file));
            fault_ = fault_.empty() && !wrong.empty() ? "a main program got: " + wrong : fault_;
            DeleteFileW(file.c_str()); // unless one of those that hosts have started still writes
        }
    }

    void LookAfterHosts()
    {
        const Clock::time_point now = Clock::now();
        for (auto at = hosts_.begin(); at != hosts_.end();)
        {
            RunningHost& host = *at;
            if (now >= host.kill && !host.killed)
            {
                host.process->Kill();
                host.killed = true;
                ++killed_;
            }
            if (host.process->HasEnded())
            {
                Examine(host);
                at = hosts_.erase(at);
                continue;
            }
            if (now > host.due)
            {
                Examine(host.commandLine + " (hangs)", host.name, {.growing = true});
                Fault(host.commandLine, "it hangs");
            }
            ++at;
        }
    }
    // The last trace; those of earlier lives it has examined itself.
    void Examine(const RunningHost& host)
    {
        const DWORD expected = host.end == HostEnd::terminated ? terminatedCode : 0;
        if (!host.killed && host.process->ExitCode() != expected)
        {
            Fault(host.commandLine, "it ended with " + std::to_string(host.process->ExitCode()));
            return;
        }
        const bool alone = host.name != twin;
        const bool busy = host.end == HostEnd::underBusyThreads;
        // A killed one may have come to no trace of its own: then it is that of the one before.
        const std::string content = Examine(host.commandLine, host.name,
                                            {.ends = alone && !host.killed && host.end == HostEnd::inOrder,
                                             .leaks = busy || host.killed || !alone,
                                             .growing = !alone});
        if (busy && alone && !host.killed)
        {
            ++busyEnds_;
            cutEnds_ += HasEnd(content) ? 0 : 1;
        }
        // So much is promised for those.
        if (cutEnds_ > 1 + busyEnds_ / 100)
        {
            Fault(host.commandLine, "its trace has no end, and that of others before");
        }
    }
    std::string Examine(const std::string& whose, const std::string& name, const TraceExpectation& expected)
    {
        std::string content = TraceContent(TraceFilePath(name));
        const std::string wrong = FaultOfTrace(content, expected);
        if (!wrong.empty())
        {
            Fault(whose, "its trace: " + wrong);
        }
        return content;
    }
    void Fault(const std::string& whose, const std::string& what)
    {
        fault_ = fault_.empty() ? what + "; of: " + whose : fault_;
    }

    const RunPlan& plan_;
    std::ostream& out_;
    Random random_;
    const std::string folder_ = Utf8(ProgramFolder());
    const std::string extension_ = Utf8(ProgramPath()).ends_with(".exe") ? ".exe" : "";
    const std::string ownOutput_ = Utf8(TraceFilePath("simulator requests"));
    const std::string startedOutput_ = Utf8(TraceFilePath("simulator requests 2"));
    const World world_;
    std::optional<Module> module_; // calls StateChanged as any process may
    std::list<RunningHost> hosts_;
    std::optional<Process> mainProgram_;
    Clock::time_point mainProgramKill_; // when it ends, if not by itself before
    std::uint32_t epoch_ = 0;
    unsigned started_ = 0;
    unsigned killed_ = 0;
    unsigned served_ = 0;
    unsigned busyEnds_ = 0;
    unsigned cutEnds_ = 0; // of these, without the closing lines
    std::string fault_;
};
} // namespace

int RunDirector(const RunPlan& plan, std::ostream& out)
{
    out << "seed " << plan.seed << std::endl;
    try
    {
        return Director(plan, out).Run();
    }
    catch (const std::exception& error)
    {
        out << "seed " << plan.seed << ": " << error.what() << "\n";
        return 3;
    }
}
} // namespace sndxtools::simulator
