#pragma once
#include <atomic>
#include <cstdint>

#include <windows.h>

namespace sndxtools::simulator
{
// What all processes of a run see at once: how far the settings have changed. The director announces an
// epoch, writes its accounts, calls StateChanged and then says that it is settled.
struct Epochs
{
    std::atomic<std::uint32_t> announced;
    std::atomic<std::uint32_t> settled;
    std::atomic<std::uint32_t> ending; // hosts finish
};
static_assert(sizeof(Epochs) == 12);

// The shared block; made by the director, found by its hosts, zero at first.
class World
{
  public:
    World(); // throws CallError
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    Epochs* operator->() const { return epochs_; }

  private:
    HANDLE mapping_ = nullptr;
    Epochs* epochs_ = nullptr;
};
} // namespace sndxtools::simulator
