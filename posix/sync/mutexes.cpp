// Named mutexes. The mutex itself is the C library's: recursive, shared between processes, and robust, so
// that the kernel tells the next owner when a thread or a process has ended with it.

#include <atomic>
#include <map>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "posix/base/locked.h"
#include "posix/sync/namedobjects.h"
#include "posix/sync/waiting.h"

namespace sndxposix
{
namespace
{
constexpr std::size_t mappedSize = 4096; // of the object's file

// Not the number that a test may have set.
pid_t CallingThread()
{
    static thread_local const auto id = static_cast<pid_t>(syscall(SYS_gettid));
    return id;
}

class MutexObject : public KernelObject
{
  public:
    // page is the mapped beginning of the file.
    MutexObject(std::unique_ptr<NamedFile> file, void* page)
        : file_(std::move(file)), page_(page),
          mutex_(reinterpret_cast<pthread_mutex_t*>(static_cast<char*>(page) + objectDataOffset))
    {
    }
    ~MutexObject() override
    {
        // A mutex that a thread owns stays mapped: the C library keeps a list of them for each thread.
        if (owner_ == 0)
        {
            munmap(page_, mappedSize);
        }
    }
    bool IsWaitable() const override { return true; }
    std::chrono::milliseconds PollInterval() const override { return sharedStatePoll; }
    std::optional<DWORD> TryWait() override
    {
        const int result = pthread_mutex_trylock(mutex_);
        if (result != 0 && result != EOWNERDEAD)
        {
            return std::nullopt;
        }
        if (result == EOWNERDEAD)
        {
            pthread_mutex_consistent(mutex_);
            depth_ = 0;
        }
        owner_ = CallingThread();
        ++depth_;
        return result == EOWNERDEAD ? WAIT_ABANDONED : WAIT_OBJECT_0;
    }
    bool Release()
    {
        if (owner_ != CallingThread())
        {
            return false;
        }
        if (--depth_ == 0)
        {
            owner_ = 0;
        }
        const bool released = pthread_mutex_unlock(mutex_) == 0;
        NotifyWaiters();
        return released;
    }

  private:
    const std::unique_ptr<NamedFile> file_;
    void* const page_;
    pthread_mutex_t* const mutex_;
    std::atomic<pid_t> owner_{0}; // of this process; also one that has ended
    unsigned depth_ = 0;          // the owner's
};

// The mutexes that this process holds: all handles of one name share one object here.
using Mutexes = std::map<std::string, std::weak_ptr<MutexObject>>;

pthread_mutex_t FreshMutex()
{
    pthread_mutex_t mutex;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return mutex;
}

// The mutex of that name, made or joined. Null with the last error set.
std::shared_ptr<MutexObject> Enter(const WCHAR* name, NamedFile::Access access, bool& existed)
{
    const auto path = NamedObjectPath(name);
    if (!path)
    {
        return nullptr;
    }
    const Locked<Mutexes> mutexes;
    std::weak_ptr<MutexObject>& entry = (*mutexes)[*path];
    auto object = entry.lock();
    existed = object != nullptr;
    if (!object)
    {
        const pthread_mutex_t fresh = FreshMutex();
        auto file = NamedFile::Enter(*path, NamedKind::Mutex, access, &existed, &fresh, sizeof fresh);
        void* const page =
            file ? mmap(nullptr, mappedSize, PROT_READ | PROT_WRITE, MAP_SHARED, file->File(), 0) : nullptr;
        if (page == nullptr || page == MAP_FAILED)
        {
            mutexes->erase(*path);
            return file ? FailWithErrno(object) : nullptr;
        }
        object = std::make_shared<MutexObject>(std::move(file), page);
        entry = object;
    }
    return object;
}
} // namespace

extern "C" HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name)
{
    const auto body = [&]() -> HANDLE
    {
        bool existed = false;
        const auto object = Enter(name, NamedFile::Access::Create, existed);
        if (!object)
        {
            return nullptr;
        }
        if (initialOwner && !existed)
        {
            // A waiter of another process may have been faster by a hair; then the mutex is that one's.
            object->TryWait();
        }
        const HANDLE handle = InsertHandle(object);
        SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
        return handle;
    };
    return Call("CreateMutexW", HANDLE{}, body);
}

extern "C" HANDLE WINAPI OpenMutexW(DWORD, BOOL, LPCWSTR name)
{
    bool existed = false;
    const auto object = Enter(name, NamedFile::Access::Open, existed);
    return object ? InsertHandle(object) : nullptr;
}

extern "C" BOOL WINAPI ReleaseMutex(HANDLE mutex)
{
    const auto object = LookupHandleFor<MutexObject>("ReleaseMutex", mutex);
    return object && (object->Release() || FailWith(ERROR_NOT_OWNER));
}
} // namespace sndxposix
