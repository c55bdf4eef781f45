#include <cstring>
#include <numeric>
#include <regex>

#include <windows.h>
#include <shlobj.h>

#include "tools/contract.h"
#include "tools/doctor/examination.h"

namespace sndxtools::doctor
{
namespace
{
constexpr std::uint64_t largeTraces = 1'000'000'000; // bytes, all together

// In the two closing lines; the ruler stands behind a stamp of 20 bytes.
bool EndsGracefully(const std::string& tail)
{
    const std::string last = "Execution terminated gracefully.\r\n";
    const std::string ruler = std::string(68, '-') + "\r\n";
    const std::size_t size = last.size() + 20 + ruler.size();
    return tail.size() >= size && tail.ends_with(ruler) && tail.substr(tail.size() - size).starts_with(last);
}

// The trace of a program's last start.
void ExamineTrace(Examination& examination, const WideString& folder, const Entry& file,
                  const std::vector<Holder>& holders)
{
    const auto isHost = [&file](const Holder& holder)
    {
        const std::string title = holder.program.substr(0, holder.program.rfind('.'));
        return Folded(Wide(contract::traceFilePrefix + title + ".txt")) == Folded(file.name);
    };
    const bool isRunning = std::ranges::any_of(holders, isHost);
    const auto read = [path = folder + file.name] { return ReadPart(path, true); };
    const std::string tail = isRunning ? "" : examination.Bounded(read, std::string());
    const std::string size = std::to_string(file.size) + " bytes, ";
    examination.Decide(
        "trace " + Quoted(Utf8(file.name)), "Look at its last lines: sndxtrace summary FILE",
        {{file.isFolder, Attention, "A folder, so that the program writes no trace.", "Remove it."},
         {isRunning, Ok, size + "the program is running."},
         {EndsGracefully(tail), Ok, size + "ended gracefully."},
         {tail.empty(), Attention, size + "empty or not to be read.", "Try as the user whose trace it is."},
         {true, Attention, size + "cut off: the program was killed or crashed, or could not write."}});
}
} // namespace

void ExaminePipe(Examination& examination)
{
    constexpr DWORD longestWait = 2000; // ms; a main program that works gives its next instance at once
    const std::string name = std::string("\\\\.\\pipe\\") + contract::pipeName;
    const DWORD error = WaitNamedPipeW(Wide(name).c_str(), longestWait) ? DWORD{0} : GetLastError();
    examination.Decide(
        "pipe", "End the main program in the task manager; the next command starts it.",
        {{error == 0, Ok, "The main program serves it."},
         {error == ERROR_FILE_NOT_FOUND, Ok, "Nobody serves it; a command starts the main program."},
         {error == ERROR_SEM_TIMEOUT, Wrong, name + " took nobody for 2 seconds: commands hang in Explorer."},
         {true, Wrong, name + " cannot be asked: " + ErrorText(error) + "."}});
}

std::vector<Holder> ExamineHolders(Examination& examination, const WideString& module)
{
    const Processes processes = examination.Bounded(FindHolders, Processes());
    Lines lines;
    bool isOld = false;
    for (const Holder& holder : processes.holders)
    {
        isOld = isOld || (!module.empty() && Folded(holder.module) != Folded(module));
        lines.push_back(holder.program + " (" + std::to_string(holder.process) +
                        "): " + Quoted(Utf8(holder.module)));
    }
    const std::string text = std::to_string(lines.size()) + " with the module loaded; " +
                             std::to_string(processes.closed) + " could not be looked into.";
    examination.Decide(
        "programs", "Start them again; Explorer by signing out and in.",
        {{!processes.areKnown, Attention, "The list of processes did not come.", "Try again."},
         {isOld, Attention, text + " Some go on with another file than the registered one."},
         {processes.shellWithout, Attention, text + " Explorer is none of them, and so shows no icons."},
         {true, Ok, text}},
        lines);
    return processes.holders;
}

void ExamineStamp(Examination& examination, const std::vector<Holder>& holders)
{
    const OwnedHandle block(OpenFileMappingW(FILE_MAP_READ, FALSE, Wide(contract::stateBlockName).c_str()));
    const DWORD error = block ? DWORD{0} : GetLastError();
    const void* const view = block ? MapViewOfFile(block.get(), FILE_MAP_READ, 0, 0, sizeof(DWORD)) : nullptr;
    DWORD stamp = 0;
    if (view != nullptr)
    {
        std::memcpy(&stamp, view, sizeof stamp);
        UnmapViewOfFile(view);
    }
    const std::string age = std::to_string((GetTickCount() - stamp) / 1000);
    const std::string result = ": only programs that start notice changes of the settings.";
    examination.Decide(
        "state stamp", "End the programs that have the module loaded, or sign out and in.",
        {{view != nullptr && stamp == 0, Ok, "No change of the settings was announced so far."},
         {view != nullptr, Ok, "A change of the settings was announced " + age + " seconds ago."},
         {error == ERROR_FILE_NOT_FOUND && holders.empty(), Ok, "None, as no program has the module loaded."},
         {error == ERROR_FILE_NOT_FOUND, Attention, "There is no shared block in this session" + result},
         {error == ERROR_INVALID_HANDLE, Wrong, "Another program uses the name of the shared block" + result},
         {true, Wrong, "The shared block cannot be read (" + ErrorText(error) + ")" + result}});
}

void ExamineTraces(Examination& examination, const std::vector<Holder>& holders)
{
    using Entries = std::vector<Entry>;
    WCHAR path[MAX_PATH] = {};
    const bool isNone = FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path));
    const WideString folder = WideString(path) + TEXT("\\");
    const WideString pattern = folder + Wide(contract::traceFilePrefix) + TEXT("*.txt");
    const auto entries =
        isNone ? Entries() : examination.Bounded([pattern] { return List(pattern); }, Entries());
    const auto add = [](std::uint64_t sum, const Entry& entry) { return sum + entry.size; };
    const std::uint64_t size = std::accumulate(entries.begin(), entries.end(), std::uint64_t{}, add);
    const std::string text = std::to_string(entries.size()) + " files with " + std::to_string(size) +
                             " bytes in " + Quoted(Utf8(path)) + ".";
    examination.Decide(
        "traces", "Delete what is not wanted: a trace is open only while a line is written.",
        {{isNone, Attention, "The user has no folder for application data.", "Mend the user's profile."},
         {true, size > largeTraces ? Attention : Ok, text}});
    for (const Entry& entry : entries)
    {
        if (!std::regex_search(Utf8(entry.name), std::regex("[.][1-9][.]txt$"))) // not of an earlier start
        {
            ExamineTrace(examination, folder, entry, holders);
        }
    }
}
} // namespace sndxtools::doctor
