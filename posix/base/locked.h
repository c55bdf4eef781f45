#pragma once
// The tables of the layer.

#include <mutex>

namespace sndxposix
{
// Exclusive use of the process's one object of a type, which is made at first use. It is never destroyed:
// modules call the layer in their static destructors, at the very end of the process, and threads may outlive
// those.
template <class T, class Mutex = std::mutex>
class Locked
{
  public:
    Locked() : lock_(Only().mutex) {}
    T* operator->() const { return &Only().object; }
    T& operator*() const { return Only().object; }

  private:
    struct Pair
    {
        Mutex mutex;
        T object;
    };
    static Pair& Only()
    {
        static Pair& only = *new Pair;
        return only;
    }
    const std::lock_guard<Mutex> lock_;
};
} // namespace sndxposix
