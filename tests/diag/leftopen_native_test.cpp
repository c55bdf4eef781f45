// The search for the handle that a dead thread left open, on the layer's handles. What Windows tells of a
// handle is told by the test. The real end of a process is tested with the module under Wine.

#include <cstring>
#include <map>

#include "diag/leftopen.h"
#include "sndxposix.h"
#include "tests/support/reports.h"
#include "tests/support/temporaryfolder.h"

namespace
{
using namespace sndxtest;

// The first fields of what the system tells; the size of all of it is fixed.
struct Facts
{
    std::uint32_t attributes, access, handles;
};
constexpr Facts fitting = {0, 0x0012019F, 1};
constexpr LONG failure = static_cast<LONG>(0xC0000008);

std::map<HANDLE, Facts> g_facts; // of what is open
std::uint32_t g_asked = 0;
std::uint32_t g_cost = 0; // milliseconds a question

LONG WINAPI QueryObject(HANDLE handle, int kind, void* facts, ULONG size, ULONG*)
{
    ++g_asked;
    sndxposix::AdvanceTickCount(g_cost);
    const auto known = g_facts.find(handle);
    if (known != g_facts.end())
    {
        std::memcpy(facts, &known->second, sizeof(Facts));
    }
    return known != g_facts.end() && kind == 0 && size == 56 ? 0 : failure;
}

class LeftOpen : public testing::Test
{
  protected:
    LeftOpen()
    {
        sndxposix::ProvideFunction("NtQueryObject", reinterpret_cast<void*>(&QueryObject));
        g_facts.clear();
        g_asked = 0;
        g_cost = 0;
        sndxposix::SetTickCount(1000);
    }
    ~LeftOpen() override
    {
        sndxposix::ProvideFunction("NtQueryObject", nullptr);
        sndxposix::RunTickCount();
        for (const auto& [handle, facts] : g_facts)
        {
            CloseHandle(handle);
        }
    }
    // Opens a file of the content, as the system would tell of it.
    HANDLE Open(const std::string& name, const std::string& content, Facts facts = fitting)
    {
        WriteWholeFile(folder_ / name, content);
        return Again(name, facts);
    }
    HANDLE Again(const std::string& name, Facts facts)
    {
        const HANDLE handle =
            OpenFile(folder_ / name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
        g_facts[handle] = facts;
        return handle;
    }
    HANDLE Found() const { return LFindLeftOpen(Wide(folder_ / "trace").c_str()); }

  private:
    TemporaryFolder folder_;
};

TEST_F(LeftOpen, TheTraceFileIsFoundAmongOthers)
{
    Open("shorter", "x");
    Open("earlier", "trace");
    const HANDLE trace = Open("trace", "trace");
    Open("later", "trace");
    EXPECT_EQ(Found(), trace);
}

TEST_F(LeftOpen, WhatIsNotTheTracesOwnIsLeftAlone)
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr); // the system tells nothing of it
    Open("earlier", "trace");
    Open("trace", "trace", {0, 0x00120089, 1});                     // for reading alone
    Again("trace", {0, 0x0012019F, 2});                             // also in another process
    g_facts[CreateEventW(nullptr, TRUE, FALSE, nullptr)] = fitting; // no file
    EXPECT_EQ(Found(), nullptr);
    EXPECT_EQ(g_asked, 0x20000u / 4 - 1) << "every value";
    CloseHandle(event);
}

TEST_F(LeftOpen, TheSearchEndsAfterTheHundredthOfASecond)
{
    Open("trace", "trace", {0, 0, 1});
    g_cost = 10;
    EXPECT_EQ(Found(), nullptr);
    EXPECT_EQ(g_asked, 10u);
}

TEST_F(LeftOpen, WithoutTheSystemsHelpNothingIsLookedFor)
{
    EXPECT_EQ(Found(), nullptr) << "there is no such file";
    Open("trace", "trace");
    sndxposix::FailCall("GetModuleHandleW", ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(Found(), nullptr);
    sndxposix::ProvideFunction("NtQueryObject", nullptr);
    EXPECT_EQ(Found(), nullptr);
    EXPECT_EQ(g_asked, 0u);
}
} // namespace
