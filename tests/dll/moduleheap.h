#pragma once
// The runtime's heap as the module uses it, from its first constructor on: every block it takes and gives
// back, and the choice of one request that fails.

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <malloc.h>

#include <gtest/gtest.h>

#include "tests/dll/moduleimports.h"

namespace sndxtest
{
struct HeapRequest
{
    std::string function;
    std::size_t size = 0; // bytes in all
    std::size_t alignment = 0;

    bool operator==(const HeapRequest&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const HeapRequest& request)
{
    return stream << request.function << "(" << request.size << ", " << request.alignment << ")";
}

// Watches the module that is loaded during its life, in one thread. One at a time.
class ModuleHeap
{
  public:
    // The request number failing, counted from 1, gets nothing; 0 for none.
    explicit ModuleHeap(const std::string& fileName, std::size_t failing = 0) : hooks_(fileName, &Install)
    {
        state_ = {failing, {}, {}};
    }
    ModuleHeap(const ModuleHeap&) = delete;
    ModuleHeap& operator=(const ModuleHeap&) = delete;

    static const std::vector<HeapRequest>& Requests() { return state_.requests; }
    static bool HasFailed() { return state_.failing != 0 && state_.requests.size() >= state_.failing; }
    static const HeapRequest& Failed() { return state_.requests.at(state_.failing - 1); }
    // Blocks not yet given back.
    static std::vector<HeapRequest> Live()
    {
        std::vector<HeapRequest> live;
        for (const auto& block : state_.live)
        {
            live.push_back(block.second);
        }
        return live;
    }
    // Gives back blocks that the unloaded module has left behind.
    static void ReleaseLive()
    {
        for (const auto& block : std::exchange(state_.live, {}))
        {
            Return(block.first, block.second.function);
        }
    }

  private:
    struct State
    {
        std::size_t failing;
        std::vector<HeapRequest> requests;
        std::map<void*, HeapRequest> live;
    };

    static void Install(HMODULE module)
    {
        ReplaceImport(module, "malloc", reinterpret_cast<void*>(&Malloc));
        ReplaceImport(module, "calloc", reinterpret_cast<void*>(&Calloc));
        ReplaceImport(module, "realloc", reinterpret_cast<void*>(&Realloc));
        ReplaceImport(module, "free", reinterpret_cast<void*>(&Free));
        ReplaceImport(module, "_aligned_malloc", reinterpret_cast<void*>(&AlignedMalloc));
        ReplaceImport(module, "_aligned_free", reinterpret_cast<void*>(&AlignedFree));
        ReplaceImport(module, "HeapAlloc", reinterpret_cast<void*>(&ProcessHeapAlloc));
        ReplaceImport(module, "HeapFree", reinterpret_cast<void*>(&ProcessHeapFree));
    }

    template <class Take>
    static void* Request(HeapRequest request, Take take)
    {
        state_.requests.push_back(request);
        void* const block = state_.requests.size() == state_.failing ? nullptr : take();
        if (block != nullptr)
        {
            state_.live[block] = std::move(request);
        }
        return block;
    }
    static void* __cdecl Malloc(std::size_t size)
    {
        return Request({"malloc", size}, [=] { return std::malloc(size); });
    }
    static void* __cdecl Calloc(std::size_t count, std::size_t size)
    {
        return Request({"calloc", count * size}, [=] { return std::calloc(count, size); });
    }
    static void* __cdecl AlignedMalloc(std::size_t size, std::size_t alignment)
    {
        return Request({"_aligned_malloc", size, alignment},
                       [=] { return _aligned_malloc(size, alignment); });
    }
    static void* __cdecl Realloc(void* old, std::size_t size)
    {
        return Request({"realloc", size},
                       [=]
                       {
                           EXPECT_TRUE(old == nullptr || state_.live.erase(old) == 1)
                               << "a block that is not the module's grows";
                           return std::realloc(old, size);
                       });
    }
    static void* WINAPI ProcessHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
    {
        return Request({"HeapAlloc", size}, [=] { return HeapAlloc(heap, flags, size); });
    }

    static void Return(void* block, const std::string& function)
    {
        if (function == "_aligned_malloc")
        {
            _aligned_free(block);
        }
        else if (function == "HeapAlloc")
        {
            HeapFree(GetProcessHeap(), 0, block);
        }
        else
        {
            std::free(block);
        }
    }
    // Only blocks of the module, and each the way it was taken; anything else would be the end of a host.
    static bool GiveBack(void* block, const std::string& releaser)
    {
        const auto found = state_.live.find(block);
        if (found == state_.live.end())
        {
            EXPECT_EQ(block, nullptr) << "not a block of the module, or no longer: " << releaser;
            return false;
        }
        const std::string taker = found->second.function;
        const std::string wanted = taker == "_aligned_malloc" ? "_aligned_free"
                                   : taker == "HeapAlloc"     ? "HeapFree"
                                                              : "free";
        EXPECT_EQ(releaser, wanted);
        state_.live.erase(found);
        Return(block, taker);
        return true;
    }
    static void __cdecl Free(void* block) { GiveBack(block, "free"); }
    static void __cdecl AlignedFree(void* block) { GiveBack(block, "_aligned_free"); }
    static BOOL WINAPI ProcessHeapFree(HANDLE, DWORD, LPVOID block) { return GiveBack(block, "HeapFree"); }

    inline static State state_{};
    const BeforeConstruction hooks_;
};
} // namespace sndxtest
