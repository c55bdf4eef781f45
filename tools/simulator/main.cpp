// Plays a machine at work around the shell extension: several shells that use it at once, settings that
// change under their hands, main programs that hang or go, processes that end without a word. What must hold
// at every moment is checked; a failure names the seed that repeats it.

#include <chrono>
#include <iostream>

#include "tools/entry.h"
#include "tools/options.h"
#include "tools/paths.h"
#include "tools/simulator/director.h"
#include "tools/simulator/host.h"

namespace sndxtools
{
namespace
{
#ifdef _WIN32
constexpr char moduleName[] = "sndxdll.dll";
constexpr char mainProgramName[] = "mainprogram.exe";
#else
constexpr char moduleName[] = "sndxdll.so";
constexpr char mainProgramName[] = "mainprogram";
#endif

int Run(const Arguments& arguments)
{
    simulator::RunPlan run{ProgramFolder() + Wide(moduleName), ProgramFolder() + Wide(mainProgramName), 0, 60,
                           4};
    simulator::HostPlan host;
    run.seed = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    std::string module;
    int manner = 0;
    int end = 0;
    bool overwrite = false;
    CLI::App parser("Plays a machine at work around the shell extension, and checks what must hold.",
                    "simulator");
    SetUp(parser);
    parser.add_option("--seconds", run.seconds, "how long (60)")->check(CLI::Range(1, 7 * 24 * 3600));
    parser.add_option("--hosts", run.hosts, "processes at the same time (4)")->check(CLI::Range(1, 64));
    parser.add_option("--seed", run.seed, "of an earlier run, to do the same things again (the time)");
    parser
        .add_option("--load", run.threads,
                    "only this: one process with so many threads that ask the overlay all the time, and\n"
                    "others that announce changes")
        ->check(CLI::Range(1, 64));
    parser.add_option("--module", module, "the module's file (beside this program)")->type_name("FILE");
    parser.add_flag("--overwrite-settings", overwrite,
                    "needed: settings and registered classes of this machine come and go. Natively they are\n"
                    "those below $SENDORA_ROOT");
    CLI::App* const part = parser.add_subcommand("host", "one of the processes, as the run starts it");
    part->add_option("--module", module, "the module's file")->type_name("FILE");
    part->add_option("--seed", host.seed, "of the run");
    part->add_option("--own-seed", host.ownSeed, "of this process");
    part->add_option("--milliseconds", host.milliseconds, "how long");
    part->add_option("--manner", manner, "shell, storm or announcer, as a number")->check(CLI::Range(0, 2));
    part->add_option("--threads", host.threads, "of a storm");
    part->add_option("--end", end, "in order, under busy threads or at once, as a number")
        ->check(CLI::Range(0, 2));
    part->add_flag("--lasting", host.lasting, "stay for the whole run");
    part->add_flag("--shared-trace", host.sharedTrace, "others of this name write the same trace");
    parser.require_subcommand(0, 1);
    parser.footer("Exit codes: 0 all went well; 2 wrong usage; 3 something did not hold.");
    if (!Parse(parser, arguments, std::cout))
    {
        return 0;
    }
    if (part->parsed())
    {
        host.module = FilePath(module);
        host.manner = static_cast<simulator::HostManner>(manner);
        host.end = static_cast<simulator::HostEnd>(end);
        return simulator::RunHost(host, std::cout);
    }
    if (!overwrite)
    {
        throw UsageError("--overwrite-settings is needed: settings and classes of this machine come and go");
    }
    run.module = module.empty() ? run.module : FilePath(module);
    return simulator::RunDirector(run, std::cout);
}
} // namespace

int RunTool(const Arguments& arguments)
{
    try
    {
        return Run(arguments);
    }
    catch (const UsageError& error)
    {
        std::cerr << "simulator: " << error.what() << " (see --help)\n";
        return 2;
    }
}
} // namespace sndxtools
