// What a module is told of its end. All else of loading shows with the product.

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include <tlhelp32.h>

#include "tests/platform/handle.h"
#include "tests/support/child.h"
#include "tests/support/temporaryfolder.h"

namespace
{
using namespace sndxtest;

SNDX_CHILD(LoadAndEnd)
{
    const HMODULE module = LoadLibraryA("testmodule" SNDX_MODULE_SUFFIX);
    return module != nullptr && (arguments[0] == "end" || FreeLibrary(module)) ? 7 : 1;
}

TEST(Modules, AreDetachedAndThenDestroyedAndToldOfTheEndOfTheProcess)
{
    const TemporaryFolder folder;
    for (const auto& [how, noted] :
         {std::pair{"free", "detach destruct"}, {"end", "detach-at-exit destruct"}})
    {
        SetEnvironmentVariableW(TEXT("SNDX_NOTES"), Wide(folder.Local(how).string()).c_str());
        EXPECT_EQ(ChildProcess("LoadAndEnd", {how}).Wait(), 7);
        EXPECT_EQ(ReadWholeFile(folder / how), noted);
    }
}

SNDX_CHILD(LoadAndStay)
{
    const bool loaded = LoadLibraryA("testmodule" SNDX_MODULE_SUFFIX) != nullptr;
    Announce(loaded ? "loaded" : "failed");
    return WaitFor("never", 60000);
}

// "process name", or "process path" of modules, for the whole snapshot.
template <class Entry, class First, class Next, class Show>
Lines Walk(DWORD what, DWORD process, First first, Next next, Show show)
{
    Lines lines;
    const Handle snapshot(CreateToolhelp32Snapshot(what, process));
    Entry entry = {};
    entry.dwSize = sizeof entry;
    for (BOOL more = first(snapshot, &entry); more; more = next(snapshot, &entry))
    {
        lines.push_back(std::to_string(entry.th32ProcessID) + " " + show(entry));
    }
    EXPECT_TRUE(!snapshot.IsOpen() || GetLastError() == ERROR_NO_MORE_FILES);
    return lines;
}

Lines ModulesOf(DWORD process)
{
    return Walk<MODULEENTRY32W>(TH32CS_SNAPMODULE, process, Module32FirstW, Module32NextW,
                                [](const MODULEENTRY32W& entry) { return Utf8(entry.szExePath); });
}

TEST(Modules, AreSeenInOtherProcesses)
{
    ClearPoints();
    ChildProcess child("LoadAndStay", {});
    ASSERT_TRUE(WaitFor("loaded"));
    const Lines programs =
        Walk<PROCESSENTRY32W>(TH32CS_SNAPPROCESS, 0, Process32FirstW, Process32NextW,
                              [](const PROCESSENTRY32W& entry) { return Utf8(entry.szExeFile); });
    const std::string name = OwnPath().substr(OwnPath().find_last_of('\\') + 1);
    DWORD other = 0;
    for (const std::string& program : programs)
    {
        const auto process = static_cast<DWORD>(std::stoul(program));
        other = program.ends_with(" " + name) && process != GetCurrentProcessId() ? process : other;
    }
    const std::string module =
        OwnPath().substr(0, OwnPath().find_last_of('\\') + 1) + "testmodule" SNDX_MODULE_SUFFIX;
    EXPECT_EQ(std::ranges::count(ModulesOf(other), std::to_string(other) + " " + module), 1)
        << other << " " << module;
    EXPECT_EQ(std::ranges::count(ModulesOf(0), std::to_string(GetCurrentProcessId()) + " " + OwnPath()), 1);
    child.Kill();
    EXPECT_EQ(ModulesOf(other), Lines());
}
} // namespace
