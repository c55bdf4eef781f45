#pragma once
#include <atomic>
#include <cstdint>

#include <windows.h>

namespace sndxtools::simulator
{
// What all processes of a run see at once: how far the settings have changed, and what was done. The director
// announces an epoch, writes its settings, calls StateChanged and then says that it is settled.
struct Shared
{
    std::atomic<std::uint32_t> announced;
    std::atomic<std::uint32_t> settled;
    std::atomic<std::uint32_t> ending; // hosts finish
    std::atomic<std::uint32_t> lives;  // of the module, those that ended in order
    std::atomic<std::uint64_t> answers;
    std::atomic<std::uint64_t> menus;
    std::atomic<std::uint64_t> requests;
    std::atomic<std::uint64_t> changes;    // calls of StateChanged
    std::atomic<std::uint64_t> lines;      // that the module tried to write, in lives that ended in order
    std::atomic<std::int64_t> moreHandles; // of the host that stays, compared with earlier
    std::atomic<std::int64_t> moreKilobytes;
    std::atomic<std::uint64_t> lostLines; // of these, given up after the stated time-out
};
static_assert(sizeof(Shared) == 80 && std::atomic<std::uint64_t>::is_always_lock_free);

// The shared block; made by the director, found by its hosts, zero at first.
class World
{
  public:
    World(); // throws CallError
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    Shared* operator->() const { return shared_; }

  private:
    HANDLE mapping_ = nullptr;
    Shared* shared_ = nullptr;
};
} // namespace sndxtools::simulator
