// The named block of memory: a guard for its creation, and what is left when a step fails. That processes see
// each other's writes is tested with the module's stamp, and what else may have its name, with the module's
// hostile neighbours.

#include <atomic>
#include <memory>
#include <thread>

#include "tests/support/reports.h"
#include "tests/support/timing.h"
#include "win32/sharedmemory.h"

namespace
{
using namespace sndxtest;

using SharedNumber = LIPCSharedMemory<std::uint32_t>;

const char* const guardGone = "LSystemLockMutex::~LSystemLockMutex";

// Shows what the class keeps to itself.
class Block : public LIPCSharedMemoryBuffer
{
  public:
    Block(const WideString& name, bool failIfExists, bool global)
    {
        _Create(name.c_str(), 4, failIfExists, global);
    }
    void* View() const { return m_pView; }
    std::uint64_t Size() const { return m_uSize; }
};

class SharedMemory : public ::testing::Test
{
  protected:
    static bool Exists(const std::string& name)
    {
        return LHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, Wide(name).c_str())).IsOpen();
    }

    const std::string name_ = "sndxtest" + std::to_string(GetCurrentProcessId());
    const WideString wide_ = Wide(name_);
    const std::string constructor_ = "LIPCSharedMemory<T>::LIPCSharedMemory " + name_;
    const std::string create_ = "LIPCSharedMemoryBuffer::_Create " + name_;
};

TEST_F(SharedMemory, TheFirstUserFindsZeros)
{
    for (int i = 0; i < 2; ++i)
    {
        const TraceCapture trace;
        const SharedNumber number(wide_.c_str());
        EXPECT_EQ(trace.Texts(), (Lines{constructor_, create_, guardGone}));
        ASSERT_TRUE(number.IsValid());
        EXPECT_EQ(*number.Get(), 0u);
        *number.Get() = 5;
        EXPECT_EQ(*SharedNumber(wide_.c_str()).Get(), 5u);
        EXPECT_FALSE(Exists("Global\\" + name_));
    }
    EXPECT_FALSE(Exists(name_)) << "the last user has gone";
}

TEST_F(SharedMemory, AnExistingBlockIsLeftAloneOnRequest)
{
    auto number = std::make_unique<SharedNumber>(wide_.c_str());
    *number->Get() = 5;
    const TraceCapture trace;
    const Block second(wide_, true, false);
    EXPECT_EQ(trace.Texts(), (Lines{create_, guardGone}));
    EXPECT_FALSE(second.IsValid());
    EXPECT_EQ(second.View(), nullptr);
    EXPECT_EQ(*number->Get(), 5u);
    EXPECT_TRUE(Block(wide_, true, true).IsValid()) << "a global block is another one";
    number.reset();
    EXPECT_FALSE(Exists(name_)) << "the refused block keeps its handle";
}

TEST_F(SharedMemory, CreationWaitsForTheGuard)
{
    for (const auto& [name, guardName] : {std::pair{name_, name_}, {"Local\\" + name_, "Local_" + name_}})
    {
        SCOPED_TRACE(name);
        const LHandle guard(CreateMutexW(nullptr, TRUE, Wide("Global\\fmm" + guardName).c_str()));
        std::atomic<bool> created = false;
        std::thread other([&, block = Wide(name)] { created = SharedNumber(block.c_str()).IsValid(); });
        Sleep(150);
        EXPECT_FALSE(created || Exists(name));
        ReleaseMutex(guard.Get());
        other.join();
        EXPECT_TRUE(created);
    }
}

TEST_F(SharedMemory, ASmallerBlockThatIsInTheWayIsGivenUpSilently)
{
    struct Large
    {
        char bytes[1000000];
    };
    auto small = std::make_unique<SharedNumber>(wide_.c_str());
    const TraceCapture trace;
    const LIPCSharedMemory<Large> large(wide_.c_str()); // cannot be mapped from the existing block
    EXPECT_EQ(large.Get(), nullptr);
    EXPECT_EQ(trace.Texts(), (Lines{constructor_, create_, guardGone}));
    small.reset();
    EXPECT_FALSE(Exists(name_)) << "the half-open block keeps its handle";
}

TEST_F(SharedMemory, ClosingIsCompleteAndMayBeRepeated)
{
    Block block(wide_, false, false);
    const void* const first = block.View();
    block._Create(Wide(name_ + "b").c_str(), 16, false, false);
    EXPECT_FALSE(Exists(name_)) << "the block of the earlier call";
    EXPECT_EQ(block.Size(), 16u);
    const void* const second = block.View();
    block.Close();
    block.Close();
    EXPECT_FALSE(block.IsValid());
    EXPECT_EQ(block.Size(), 0u);
    EXPECT_FALSE(Exists(name_ + "b"));
    // The addresses may serve something else by now, but are no views any more.
    EXPECT_FALSE(UnmapViewOfFile(first) || UnmapViewOfFile(second));
    EXPECT_EQ(HandlesLeft([this] { const Block one(wide_, false, true); }), 0);
}
} // namespace
