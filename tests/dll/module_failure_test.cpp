// A whole job of the module with one request for memory failing: the first, then the second, and so on until
// the job runs through. Whichever it is, the calls answer, nothing is lost and nothing is released twice.

#include "tests/dll/mainjob.h"
#include "tests/dll/moduleheap.h"
#include "tests/support/debuggeroutput.h"

using namespace sndxtest;

namespace
{
// Memory mode, selected paths; a part of parts that share the requests among them.
using Sweep = std::tuple<int, std::size_t, std::size_t, std::size_t>;

class ModuleFailure : public MainJobTest, public testing::WithParamInterface<Sweep>
{
};

// Whether a step may answer that when memory was refused during it.
bool IsHonest(const JobStep& step)
{
    if (step.first == "IsMemberOf")
    {
        return step.second == S_OK || step.second == S_FALSE; // an account may be missing
    }
    return step.second ==
           (step.first == "QueryContextMenu" ? static_cast<HRESULT>(0x80000000u) : E_OUTOFMEMORY);
}
} // namespace

TEST_P(ModuleFailure, OfAnyRequestForMemoryIsAnsweredAndLosesNothing)
{
    const auto [mode, selected, part, parts] = GetParam();
    SetMemoryMode(mode);
    const auto paths = Select(selected);
    const ChildProcess server = Serve({"--duration", "60000"});
    bool ranThrough = false;
    int madeAllTheSame = 0;
    for (std::size_t failing = 1 + part; !ranThrough; failing += parts)
    {
        const DebuggerOutput output; // the trace file may be what there is no memory for
        const ModuleHeap heap(ModuleFileName(), failing);
        Module module;
        const bool failedAtLoad = ModuleHeap::HasFailed();
        std::size_t before = 0; // steps that had all memory
        const MainJob job(module, paths, [&] { before += ModuleHeap::HasFailed() ? 0 : 1; });
        module.Free();
        ranThrough = !ModuleHeap::HasFailed();
        const JobSteps& steps = job.Steps();
        const JobStep affected = ranThrough ? JobStep() : steps.at(before);
        const bool made = !failedAtLoad && affected == JobStep{"CreateInstance", S_OK};
        madeAllTheSame += made ? 1 : 0;
        if (ranThrough || made)
        {
            EXPECT_EQ(steps, MainJob::Expected());
        }
        else
        {
            EXPECT_TRUE(failedAtLoad || IsHonest(affected));
        }
        const JobSteps anew = MainJob::AfterTheChange();
        if (before + anew.size() < steps.size()) // what went wrong before is forgotten
        {
            EXPECT_EQ(JobSteps(steps.end() - static_cast<std::ptrdiff_t>(anew.size()), steps.end()), anew);
        }
        EXPECT_EQ(steps.back(), (JobStep{"DllCanUnloadNow", S_OK}));
        const Lines lines = Texts(ParseTrace(output.Take()));
        EXPECT_GT(lines.size(), 10u);
        EXPECT_EQ(LastLines(lines), ClosingLines());
        if (mode != 5)
        {
            EXPECT_EQ(ModuleHeap::Live(), ModuleHeap::Live("calloc")) << "only the table of blocks stays";
            ModuleHeap::ReleaseLive();
        }
        ASSERT_FALSE(HasFailure()) << "request " << failing << ", " << ModuleHeap::Failed() << ", in "
                                   << testing::PrintToString(affected) << "\n"
                                   << testing::PrintToString(steps);
    }
    EXPECT_GT(ModuleHeap::Requests(), selected);
    // Only the first array of a list of strings may be missing: the list tries again when a string comes. In
    // mode 5 it takes two requests.
    EXPECT_LE(madeAllTheSame, mode == 5 ? 2 : 1);
}

INSTANTIATE_TEST_SUITE_P(Sweeps, ModuleFailure,
                         testing::Values(Sweep{0, 300, 0, 4}, Sweep{0, 300, 1, 4}, Sweep{0, 300, 2, 4},
                                         Sweep{0, 300, 3, 4}, Sweep{2, 3, 0, 1}, Sweep{3, 3, 0, 1},
                                         Sweep{5, 3, 0, 1}));
