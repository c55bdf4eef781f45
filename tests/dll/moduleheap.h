#pragma once
// The runtime's heap as the module uses it, from its first constructor on: every block it takes and gives
// back, and the choice of one request that fails.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <malloc.h>

#include <gtest/gtest.h>

#include "tests/dll/moduleimports.h"

namespace sndxtest
{
// Watches the module that is loaded during its life. One at a time.
class ModuleHeap
{
  public:
    // The request number `failing`, counted from 1, gets nothing; 0 for none.
    explicit ModuleHeap(const std::string& fileName, std::size_t failing = 0)
        : imports_(fileName, {{"malloc", reinterpret_cast<void*>(&Malloc)},
                              {"calloc", reinterpret_cast<void*>(&Calloc)},
                              {"free", reinterpret_cast<void*>(&GiveBack<&std::free>)},
                              {"_aligned_malloc", reinterpret_cast<void*>(&AlignedMalloc)},
                              {"_aligned_free", reinterpret_cast<void*>(&GiveBack<&_aligned_free>)},
                              {"HeapAlloc", reinterpret_cast<void*>(&ProcessHeapAlloc)},
                              {"HeapFree", reinterpret_cast<void*>(&ProcessHeapFree)}})
    {
        state_ = {failing, 0, {}, {}};
        mostInside_ = 0;
    }

    static std::size_t Requests() { return state_.requests; }
    static bool HasFailed() { return !state_.failed.empty(); }
    // The failed request, for messages.
    static const std::string& Failed() { return state_.failed; }
    // Threads of the module that were inside the runtime's functions at a time.
    static std::size_t MostInside() { return mostInside_; }
    // Blocks taken with the function and not yet given back, or all of them.
    static std::size_t Live(const std::string& taker = {})
    {
        return static_cast<std::size_t>(
            std::count_if(state_.live.begin(), state_.live.end(),
                          [&](const auto& block) { return taker.empty() || block.second.taker == taker; }));
    }
    // Gives back blocks that the unloaded module has left behind.
    static void ReleaseLive()
    {
        for (const auto& block : std::exchange(state_.live, {}))
        {
            block.second.release(block.first);
        }
    }

  private:
    using Release = void (*)(void*);
    struct Block
    {
        std::string taker;
        Release release; // the one right way
    };
    struct State
    {
        std::size_t failing;
        std::size_t requests;
        std::string failed;
        std::map<void*, Block> live;
    };

    // One thread inside the runtime's functions, and the use of the state above.
    class Visit
    {
      public:
        Visit()
        {
            const std::size_t now = ++inside_;
            mostInside_ = std::max<std::size_t>(mostInside_, now);
            std::this_thread::yield(); // whoever can come in shall
            mutex_.lock();
        }
        ~Visit()
        {
            mutex_.unlock();
            --inside_;
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

      private:
        inline static std::atomic<std::size_t> inside_ = 0;
        inline static std::mutex mutex_;
    };

    template <class Take>
    static void* Request(const char* taker, std::size_t size, Release release, Take take)
    {
        const Visit visit;
        if (++state_.requests == state_.failing)
        {
            state_.failed = std::string(taker) + " of " + std::to_string(size) + " bytes";
            return nullptr;
        }
        void* const block = take();
        state_.live[block] = {taker, release};
        return block;
    }
    static void* __cdecl Malloc(std::size_t size)
    {
        return Request("malloc", size, &std::free, [=] { return std::malloc(size); });
    }
    static void* __cdecl Calloc(std::size_t count, std::size_t size)
    {
        return Request("calloc", count * size, &std::free, [=] { return std::calloc(count, size); });
    }
    static void* __cdecl AlignedMalloc(std::size_t size, std::size_t alignment)
    {
        return Request("_aligned_malloc", size, &_aligned_free,
                       [=] { return _aligned_malloc(size, alignment); });
    }
    static void* WINAPI ProcessHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
    {
        return Request("HeapAlloc", size, &FreeToProcessHeap, [=] { return HeapAlloc(heap, flags, size); });
    }

    // Only blocks of the module, and each the way it was taken; anything else would be the end of a host.
    template <Release release>
    static void __cdecl GiveBack(void* block)
    {
        const Visit visit;
        const auto found = state_.live.find(block);
        if (block == nullptr || found == state_.live.end())
        {
            EXPECT_EQ(block, nullptr) << "not a block of the module, or no longer";
            return;
        }
        EXPECT_EQ(release, found->second.release) << "not the way to give back " << found->second.taker;
        const Release right = found->second.release;
        state_.live.erase(found);
        right(block);
    }
    static BOOL WINAPI ProcessHeapFree(HANDLE, DWORD, LPVOID block)
    {
        GiveBack<&FreeToProcessHeap>(block);
        return TRUE;
    }
    static void FreeToProcessHeap(void* block) { HeapFree(GetProcessHeap(), 0, block); }

    inline static State state_{};
    inline static std::atomic<std::size_t> mostInside_ = 0;
    const ModuleImports imports_;
};
} // namespace sndxtest
