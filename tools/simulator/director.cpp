#include "tools/simulator/director.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include <windows.h>

#include "tools/paths.h"
#include "tools/results.h"
#include "tools/shellhost/module.h"
#include "tools/shellhost/tracefile.h"
#include "tools/simulator/plan.h"
#include "tools/simulator/settings.h"
#include "tools/simulator/traces.h"
#include "tools/simulator/world.h"

namespace sndxtools::simulator
{
namespace
{
using Clock = std::chrono::steady_clock;

// A process that was started; ended at the latest with this object.
class Process
{
  public:
    explicit Process(const std::string& commandLine)
    {
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process = {};
        WideString line = Wide(commandLine);
        Check("CreateProcess", ErrorResult(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0,
                                                          nullptr, nullptr, &startup, &process)
                                               ? 0
                                               : GetLastError()));
        CloseHandle(process.hThread);
        handle_ = process.hProcess;
    }
    ~Process()
    {
        TerminateProcess(handle_, 1);
        WaitForSingleObject(handle_, 10000);
        CloseHandle(handle_);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool HasEnded() const { return WaitForSingleObject(handle_, 0) == WAIT_OBJECT_0; }
    // As the task manager does.
    void Kill() const { TerminateProcess(handle_, 1); }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        GetExitCodeProcess(handle_, &code);
        return code;
    }

  private:
    HANDLE handle_ = nullptr;
};

struct RunningHost
{
    RunningHost(std::string programName, std::string line, Clock::time_point end,
                std::optional<Clock::time_point> at)
        : process(line), name(std::move(programName)), commandLine(std::move(line)), due(end), kill(at)
    {
    }

    const Process process;
    const std::string name; // of its program, and so of its trace
    const std::string commandLine;
    const Clock::time_point due; // when it has ended by itself
    const std::optional<Clock::time_point> kill;
    bool killed = false;
};

class Director
{
  public:
    Director(const RunPlan& plan, std::ostream& out)
        : plan_(plan), out_(out), random_(plan.seed), module_(plan.module)
    {
    }

    int Run()
    {
        Settle();
        const Clock::time_point end = Clock::now() + std::chrono::seconds(plan_.seconds);
        while (Clock::now() < end && fault_.empty())
        {
            StartHosts();
            ServeRequests();
            if (random_() % 4 == 0)
            {
                Settle();
            }
            LookAfterHosts();
            std::this_thread::sleep_for(
                std::chrono::milliseconds(50)); // two changes in one tick would be one
        }
        world_->ending = 1;
        while (!hosts_.empty() && fault_.empty())
        {
            LookAfterHosts();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        WriteAccounts(0);
        out_ << started_ << " hosts, " << killed_ << " of them killed, " << epoch_
             << " changes of the settings, " << served_ << " main programs\n";
        if (!fault_.empty())
        {
            out_ << "seed " << plan_.seed << ": " << fault_ << "\n";
        }
        return fault_.empty() ? 0 : 3;
    }

  private:
    // The program under other names, beside it. Two hosts of the last one share a trace.
    static constexpr const char* twin = "simulated zwilling";
    static constexpr const char* names[] = {"simulated explorer", "simulated dllhost", "simulated browser",
                                            twin, twin};

    void Settle()
    {
        const std::uint32_t next = epoch_ + 1;
        world_->announced = next;
        WriteAccounts(Accounts(plan_.seed, next));
        module_.StateChanged();
        world_->settled = next;
        epoch_ = next;
    }

    void StartHosts()
    {
        while (hosts_.size() < plan_.hosts)
        {
            const std::string name = names[(started_ + random_() % 2) % std::size(names)];
            if (name != twin && IsRunning(name))
            {
                break; // one at a time
            }
            const unsigned milliseconds = 200 + static_cast<unsigned>(random_() % 4000);
            const std::string commandLine = "\"" + folder_ + name + extension_ + "\" host --module \"" +
                                            Utf8(plan_.module) + "\" --seed " + std::to_string(plan_.seed) +
                                            " --own-seed " + std::to_string(random_()) + " --milliseconds " +
                                            std::to_string(milliseconds) + (EndsBusy() ? " --ends-busy" : "");
            const Clock::time_point now = Clock::now();
            std::optional<Clock::time_point> kill;
            if (random_() % 6 == 0)
            {
                kill = now + std::chrono::milliseconds(random_() % milliseconds);
            }
            // A request may wait for its reader; no main program here lives longer than three seconds. The
            // rest is for a busy machine.
            hosts_.push_back(std::make_unique<RunningHost>(
                name, commandLine, now + std::chrono::milliseconds(milliseconds + 25000), kill));
            ++started_;
        }
    }
    bool IsRunning(const std::string& name) const
    {
        return std::any_of(hosts_.begin(), hosts_.end(),
                           [&](const auto& host) { return host->name == name; });
    }
    // Only the system itself ends the other threads of a process first.
    bool EndsBusy()
    {
#ifdef _WIN32
        return random_() % 4 == 0;
#else
        return false;
#endif
    }

    void ServeRequests()
    {
        if (mainProgram_ && mainProgram_->HasEnded())
        {
            mainProgram_.reset();
        }
        if (!mainProgram_ && random_() % 20 == 0)
        {
            constexpr const char* manners[] = {
                "", "--never-read", "--busy", "--close-early 100", "--read-after 500", "--exit-at-once"};
            mainProgram_ = std::make_unique<Process>(
                "\"" + Utf8(plan_.mainProgram) + "\" --duration 3000 --output \"" + folder_ +
                "simulator-mainprogram.txt\" " + manners[random_() % std::size(manners)]);
            ++served_;
        }
    }

    void LookAfterHosts()
    {
        const Clock::time_point now = Clock::now();
        for (auto at = hosts_.begin(); at != hosts_.end();)
        {
            RunningHost& host = **at;
            if (host.kill && now >= *host.kill && !host.killed)
            {
                host.process.Kill();
                host.killed = true;
                ++killed_;
            }
            if (host.process.HasEnded())
            {
                Examine(host);
                at = hosts_.erase(at);
                continue;
            }
            if (now > host.due)
            {
                Fault(host, "it hangs");
            }
            ++at;
        }
    }

    void Examine(const RunningHost& host)
    {
        if (!host.killed && host.process.ExitCode() != 0)
        {
            Fault(host, "it ended with " + std::to_string(host.process.ExitCode()));
            return;
        }
        const bool alone = host.name != twin;
        const bool endsBusy = host.commandLine.ends_with("--ends-busy");
        const std::string wrong = FaultOfTrace(TraceContent(TraceFilePath(host.name)),
                                               {.ends = alone && !host.killed, .leaks = endsBusy || !alone});
        if (!wrong.empty())
        {
            Fault(host, "its trace: " + wrong);
        }
    }

    void Fault(const RunningHost& host, const std::string& what)
    {
        fault_ = fault_.empty() ? what + "; to see it again: " + host.commandLine : fault_;
    }

    const RunPlan& plan_;
    std::ostream& out_;
    Random random_;
    const std::string folder_ = Utf8(ProgramFolder());
    const std::string extension_ = Utf8(ProgramPath()).ends_with(".exe") ? ".exe" : "";
    const World world_;
    const Module module_; // calls StateChanged as any process may
    std::list<std::unique_ptr<RunningHost>> hosts_;
    std::unique_ptr<Process> mainProgram_;
    std::uint32_t epoch_ = 0;
    unsigned started_ = 0;
    unsigned killed_ = 0;
    unsigned served_ = 0;
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
