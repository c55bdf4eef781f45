// The named block of memory: one content for all processes, a guard for its creation, and what is left when
// a step fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/text.h"
#include "tests/support/tracefile.h"
#include "tests/win32/reports.h"
#include "tests/win32/timing.h"
#include "win32/sharedmemory.h"

namespace
{
using sndxtest::OwnTexts;
using sndxtest::TraceCapture;
using sndxtest::Wide;
using sndxtest::WideString;
using ::testing::Each;
using ::testing::ElementsAre;

using Number = LIPCSharedMemory<std::uint32_t>;

const char* const guardGone = "LSystemLockMutex::~LSystemLockMutex";

// Shows what the class keeps to itself.
class Block : public LIPCSharedMemoryBuffer
{
  public:
    Block() = default;
    Block(const WideString& name, std::uint64_t size, bool failIfExists, bool global)
    {
        _Create(name.c_str(), size, failIfExists, global);
    }
    void* View() const { return m_pView; }
    std::uint64_t Size() const { return m_uSize; }
};

class SharedMemory : public ::testing::Test
{
  protected:
    SharedMemory() { sndxtest::ClearPoints(); }
    static bool Exists(const std::string& name)
    {
        return LHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, Wide(name).c_str())).IsOpen();
    }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const WideString wide_ = Wide(name_);
};

TEST_F(SharedMemory, TheFirstUserFindsZeros)
{
    TraceCapture trace;
    {
        const Number number(wide_.c_str());
        EXPECT_THAT(trace.Texts(), ElementsAre("LIPCSharedMemory<T>::LIPCSharedMemory " + name_,
                                               "LIPCSharedMemoryBuffer::_Create " + name_, guardGone));
        ASSERT_TRUE(number.IsValid());
        EXPECT_EQ(0u, *number.Get());
        *number.Get() = 5;
        EXPECT_TRUE(Exists(name_));
        EXPECT_FALSE(Exists("Global\\" + name_));
    }
    EXPECT_FALSE(Exists(name_)) << "the last user has gone";
    EXPECT_EQ(0u, *Number(wide_.c_str()).Get());

    const Block block(wide_, 100000, false, false);
    ASSERT_TRUE(block.IsValid());
    EXPECT_EQ(100000u, block.Size());
    const auto* const bytes = static_cast<const unsigned char*>(block.View());
    EXPECT_THAT(std::vector<unsigned char>(bytes, bytes + 100000), Each(0));
}

SNDX_CHILD(ShareNumber)
{
    const Number number(Wide(arguments.at(0)).c_str());
    if (!number.IsValid() || *number.Get() != 5)
    {
        return 1;
    }
    *number.Get() = 6;
    sndxtest::Announce("written");
    sndxtest::WaitFor("answered");
    return *number.Get() == 7 ? 0 : 2;
}

TEST_F(SharedMemory, ProcessesSeeEachOthersWritesAtOnce)
{
    const Number number(wide_.c_str());
    ASSERT_TRUE(number.IsValid());
    *number.Get() = 5;
    sndxtest::ChildProcess child("ShareNumber", {name_});
    ASSERT_TRUE(sndxtest::WaitFor("written"));
    EXPECT_EQ(6u, *number.Get());
    *number.Get() = 7;
    sndxtest::Announce("answered");
    EXPECT_EQ(0, child.Wait());
    EXPECT_EQ(7u, *number.Get());
}

// Whether it alone made the block. Everybody keeps his answer until all have asked.
SNDX_CHILD(BeTheFirst)
{
    sndxtest::WaitFor("start");
    const Block block(Wide(arguments.at(0)), 4, true, arguments.at(1) == "global");
    sndxtest::Announce("asked" + arguments.at(2));
    sndxtest::WaitFor("all");
    return block.IsValid() ? 1 : 0;
}

TEST_F(SharedMemory, ExactlyOneOfManyProcessesIsTheFirst)
{
    for (const std::string kind : {"local", "global"})
    {
        SCOPED_TRACE(kind);
        sndxtest::ClearPoints();
        std::vector<sndxtest::ChildProcess> children;
        for (int i = 0; i < 4; ++i)
        {
            children.emplace_back("BeTheFirst", std::vector<std::string>{name_, kind, std::to_string(i)});
        }
        sndxtest::Announce("start");
        for (int i = 0; i < 4; ++i)
        {
            EXPECT_TRUE(sndxtest::WaitFor("asked" + std::to_string(i)));
        }
        sndxtest::Announce("all");
        int winners = 0;
        for (sndxtest::ChildProcess& child : children)
        {
            winners += child.Wait();
        }
        EXPECT_EQ(1, winners);
    }
}

TEST_F(SharedMemory, AnExistingBlockIsLeftAloneOnRequest)
{
    auto number = std::make_unique<Number>(wide_.c_str());
    *number->Get() = 5;
    const TraceCapture trace;
    const Block second(wide_, 4, true, false);
    EXPECT_THAT(trace.Texts(), ElementsAre("LIPCSharedMemoryBuffer::_Create " + name_, guardGone));
    EXPECT_FALSE(second.IsValid());
    EXPECT_EQ(nullptr, second.View());
    EXPECT_EQ(5u, *number->Get());
    EXPECT_TRUE(Block(wide_, 4, true, true).IsValid()) << "a global block is another one";
    number.reset();
    EXPECT_FALSE(Exists(name_)) << "the refused block keeps its handle";
}

TEST_F(SharedMemory, AGlobalBlockLivesInTheGlobalNamespace)
{
    const Block block(wide_, 4, false, true);
    EXPECT_TRUE(block.IsValid());
    EXPECT_TRUE(Exists("Global\\" + name_));
    EXPECT_FALSE(Exists(name_));
}

TEST_F(SharedMemory, CreationWaitsForTheGuard)
{
    struct Case
    {
        std::string block;
        std::string guard;
    };
    for (const Case& c :
         {Case{name_, "Global\\fmm" + name_}, Case{"Local\\" + name_, "Global\\fmmLocal_" + name_}})
    {
        SCOPED_TRACE(c.block);
        const LHandle guard(CreateMutexW(nullptr, TRUE, Wide(c.guard).c_str()));
        ASSERT_TRUE(guard.IsOpen());
        std::atomic<bool> created = false;
        std::thread other(
            [&]
            {
                const Number number(Wide(c.block).c_str());
                created = number.IsValid();
                EXPECT_TRUE(Exists(c.block));
            });
        Sleep(150);
        EXPECT_FALSE(created);
        EXPECT_FALSE(Exists(c.block));
        ReleaseMutex(guard.Get());
        other.join();
        EXPECT_TRUE(created);
    }
}

TEST_F(SharedMemory, WithoutTheGuardTheBlockIsCreatedAllTheSame)
{
    const LHandle inTheWay(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4,
                                              Wide("Global\\fmm" + name_).c_str()));
    const TraceCapture trace;
    const Block block(wide_, 4, false, false);
    EXPECT_TRUE(block.IsValid());
    EXPECT_THAT(trace.Texts(), ElementsAre("LIPCSharedMemoryBuffer::_Create " + name_,
                                           "**LSystemLockMutex::Lock CreateMutex FAILED", guardGone));
}

TEST_F(SharedMemory, AnImpossibleBlockIsReported)
{
    const LHandle inTheWay(CreateMutexW(nullptr, FALSE, wide_.c_str()));
    TraceCapture trace;
    const Number number(wide_.c_str());
    EXPECT_FALSE(number.IsValid());
    EXPECT_EQ(nullptr, number.Get());
    EXPECT_THAT(trace.Texts(),
                ElementsAre("LIPCSharedMemory<T>::LIPCSharedMemory " + name_,
                            "LIPCSharedMemoryBuffer::_Create " + name_,
                            "LIPCSharedMemoryBuffer::_Create CreateFileMapping failed returned error: " +
                                sndxtest::SystemText(ERROR_INVALID_HANDLE),
                            guardGone));
    // The guard is free again.
    EXPECT_TRUE(Number(Wide(name_ + "x").c_str()).IsValid());
}

struct Large
{
    char bytes[1000000];
};

TEST_F(SharedMemory, ABlockThatCannotBeMappedIsGivenUpSilently)
{
    auto small = std::make_unique<Number>(wide_.c_str());
    ASSERT_TRUE(small->IsValid());
    const TraceCapture trace;
    const LIPCSharedMemory<Large> large(wide_.c_str()); // larger than the existing block
    EXPECT_FALSE(large.IsValid());
    EXPECT_EQ(nullptr, large.Get());
    EXPECT_THAT(trace.Texts(), ElementsAre("LIPCSharedMemory<T>::LIPCSharedMemory " + name_,
                                           "LIPCSharedMemoryBuffer::_Create " + name_, guardGone));
    small.reset();
    EXPECT_FALSE(Exists(name_)) << "the half-open block keeps its handle";
}

TEST_F(SharedMemory, ClosingIsCompleteAndMayBeRepeated)
{
    Block block;
    EXPECT_FALSE(block.IsValid());
    block.Close();
    block._Create(wide_.c_str(), 8, false, false);
    EXPECT_TRUE(block.IsValid());
    EXPECT_EQ(8u, block.Size());
    block._Create(Wide(name_ + "b").c_str(), 16, false, false);
    EXPECT_FALSE(Exists(name_)) << "the block of the earlier call";
    EXPECT_TRUE(Exists(name_ + "b"));
    const void* const view = block.View();
    for (int i = 0; i < 2; ++i)
    {
        block.Close();
        EXPECT_FALSE(block.IsValid());
        EXPECT_EQ(nullptr, block.View());
        EXPECT_EQ(0u, block.Size());
        EXPECT_FALSE(Exists(name_ + "b"));
        MEMORY_BASIC_INFORMATION memory = {};
        ASSERT_NE(0u, VirtualQuery(view, &memory, sizeof(memory)));
        EXPECT_EQ(DWORD{MEM_FREE}, memory.State);
    }
    EXPECT_EQ(0, sndxtest::HandlesLeft(
                     [&]
                     {
                         const Block one(wide_, 4, false, true);
                         const Block two(wide_, 4, true, true);
                         EXPECT_TRUE(one.IsValid() && !two.IsValid());
                     }));
}
} // namespace
