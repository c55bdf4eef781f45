// A whole job of the module with one request for memory failing: the first, then the second, and so on until
// the job runs through. Whichever it is, the calls answer, nothing is lost and nothing is released twice.

#include "tests/dll/mainjob.h"
#include "tests/dll/moduleheap.h"
#include "tests/support/debuggeroutput.h"
#include "tests/support/leakchecker.h"

using namespace sndxtest;

namespace
{
struct Sweep
{
    int mode;
    std::size_t paths;
    std::size_t part; // of parts that share the requests among them
    std::size_t parts;
};

void PrintTo(const Sweep& sweep, std::ostream* stream)
{
    *stream << "mode " << sweep.mode << ", " << sweep.paths << " paths, part " << sweep.part << " of "
            << sweep.parts;
}

class ModuleFailure : public MainJobTest, public testing::WithParamInterface<Sweep>
{
  protected:
    ModuleFailure()
    {
        SetUserString("Debug", "Memory Mode", std::to_string(GetParam().mode));
        leakCheckerIsOff = GetParam().mode == 5;
    }
};

// What a step may answer when memory was refused during it.
bool IsHonest(const JobStep& step)
{
    constexpr auto nothingAdded = static_cast<HRESULT>(0x80000000u);
    if (step.name == "IsMemberOf")
    {
        return step.result == S_OK || step.result == S_FALSE; // an account may be missing
    }
    if (step.name == "QueryContextMenu")
    {
        return step.result == nothingAdded;
    }
    return step.result == E_OUTOFMEMORY;
}
} // namespace

TEST_P(ModuleFailure, OfAnyRequestForMemoryIsAnsweredAndLosesNothing)
{
    const Sweep& sweep = GetParam();
    const auto paths = Select(sweep.paths);
    const ChildProcess server = Serve("60000");
    bool ranThrough = false;
    int madeAllTheSame = 0;
    for (std::size_t failing = 1 + sweep.part; !ranThrough; failing += sweep.parts)
    {
        SCOPED_TRACE("request " + std::to_string(failing));
        const DebuggerOutput output; // the trace file may be what there is no memory for
        const ModuleHeap heap(ModuleFileName(), failing);
        Module module;
        bool failedBefore = ModuleHeap::HasFailed();
        std::vector<JobStep> steps;
        MainJob::Run(module, paths,
                     [&](const JobStep& step)
                     {
                         steps.push_back(step);
                         if (!failedBefore && ModuleHeap::HasFailed())
                         {
                             failedBefore = true;
                             const bool made = step == JobStep{"CreateInstance", S_OK};
                             madeAllTheSame += made ? 1 : 0;
                             EXPECT_TRUE(made || IsHonest(step))
                                 << step << " without " << ModuleHeap::Failed();
                         }
                     });
        module.Free();
        ranThrough = !ModuleHeap::HasFailed();
        if (ranThrough)
        {
            EXPECT_EQ(steps, MainJob::Expected());
            EXPECT_GT(ModuleHeap::Requests().size(), sweep.paths);
        }
        const Lines lines = Texts(ParseTrace(output.Take()));
        ASSERT_GT(lines.size(), 10u);
        EXPECT_EQ(Lines(lines.end() - 3, lines.end()), ClosingLines());
        for (const HeapRequest& block : sweep.mode == 5 ? std::vector<HeapRequest>() : ModuleHeap::Live())
        {
            EXPECT_TRUE(block.function == "calloc" || block.function == "realloc") << "lost: " << block;
        }
        if (sweep.mode != 5)
        {
            ModuleHeap::ReleaseLive();
        }
        if (HasFailure())
        {
            FAIL() << (ranThrough ? HeapRequest() : ModuleHeap::Failed()) << " failed\n"
                   << testing::PrintToString(steps);
        }
    }
    // Only the first array of a list of strings may be missing: the list tries again when a string comes. In
    // mode 5 it takes two requests.
    EXPECT_LE(madeAllTheSame, sweep.mode == 5 ? 2 : 1);
}

INSTANTIATE_TEST_SUITE_P(Sweeps, ModuleFailure,
                         testing::Values(Sweep{0, 300, 0, 4}, Sweep{0, 300, 1, 4}, Sweep{0, 300, 2, 4},
                                         Sweep{0, 300, 3, 4}, Sweep{2, 3, 0, 1}, Sweep{3, 3, 0, 1},
                                         Sweep{5, 3, 0, 1}));
