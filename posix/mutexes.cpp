// Mutexes, unnamed and named.

#include "posix/namedobjects.h"
#include "posix/waiting.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace sndxposix
{
namespace
{
class MutexObject;

// What the owners of this process own, for the ends of their threads, and the named mutexes that this
// process holds: all handles of one name share one object here. Never destroyed: modules use mutexes in
// their static destructors, at the very end of the process.
struct Mutexes
{
    std::mutex mutex;
    std::multimap<pid_t, std::weak_ptr<MutexObject>> owned;
    std::map<std::string, std::weak_ptr<MutexObject>> named;
    pthread_key_t threadEnd{}; // its destructor runs at the end of each thread that has owned a mutex
};

void AbandonAllOfThread(void* threadId);

Mutexes& TheMutexes()
{
    static Mutexes& mutexes = *[]
    {
        PinLibrary();
        auto* made = new Mutexes;
        pthread_key_create(&made->threadEnd, &AbandonAllOfThread);
        return made;
    }();
    return mutexes;
}

// Not the number that a test may have set.
pid_t CallingThread()
{
    static thread_local const auto id = static_cast<pid_t>(syscall(SYS_gettid));
    return id;
}

class MutexObject : public KernelObject, public std::enable_shared_from_this<MutexObject>
{
  public:
    explicit MutexObject(std::unique_ptr<NamedFile> file) : file_(std::move(file)) {}
    bool IsWaitable() const override { return true; }
    std::optional<DWORD> TryWait() override;
    std::chrono::milliseconds PollInterval() const override
    {
        return file_ ? sharedStatePoll : KernelObject::PollInterval();
    }
    bool Release();
    // The owner's thread has ended.
    void Abandon(pid_t thread);

  private:
    // Set in the file while the mutex is owned; whoever finds it set although the lock was free knows that
    // the owner has died.
    bool ExchangeOwnedMark(bool owned);

    std::mutex mutex_;
    const std::unique_ptr<NamedFile> file_; // null for an unnamed mutex
    pid_t owner_ = 0;                       // of this process
    unsigned depth_ = 0;
    bool abandoned_ = false; // unnamed only
};

bool MutexObject::ExchangeOwnedMark(bool owned)
{
    std::uint8_t mark = 0;
    ReadAt(file_->File(), &mark, sizeof mark, objectDataOffset);
    const bool was = mark != 0;
    mark = owned ? 1 : 0;
    WriteAt(file_->File(), &mark, sizeof mark, objectDataOffset);
    return was;
}

std::optional<DWORD> MutexObject::TryWait()
{
    const pid_t thread = CallingThread();
    bool abandoned;
    {
        const std::lock_guard lock(mutex_);
        if (owner_ == thread)
        {
            ++depth_;
            return WAIT_OBJECT_0;
        }
        if (owner_ != 0 || (file_ && !SetByteLock(file_->File(), ownerByte, F_WRLCK)))
        {
            return std::nullopt;
        }
        abandoned = file_ ? ExchangeOwnedMark(true) : std::exchange(abandoned_, false);
        owner_ = thread;
        depth_ = 1;
    }
    Mutexes& mutexes = TheMutexes();
    const std::lock_guard lock(mutexes.mutex);
    mutexes.owned.emplace(thread, weak_from_this());
    // Any value but null makes the key's destructor run.
    pthread_setspecific(mutexes.threadEnd, &mutexes);
    return abandoned ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

bool MutexObject::Release()
{
    const pid_t thread = CallingThread();
    {
        const std::lock_guard lock(mutex_);
        if (owner_ != thread)
        {
            return false;
        }
        if (--depth_ > 0)
        {
            return true;
        }
        owner_ = 0;
        if (file_)
        {
            ExchangeOwnedMark(false);
            SetByteLock(file_->File(), ownerByte, F_UNLCK);
        }
    }
    {
        Mutexes& mutexes = TheMutexes();
        const std::lock_guard lock(mutexes.mutex);
        const auto [first, last] = mutexes.owned.equal_range(thread);
        for (auto entry = first; entry != last;)
        {
            const auto other = entry->second.lock();
            entry = !other || other.get() == this ? mutexes.owned.erase(entry) : std::next(entry);
        }
    }
    NotifyWaiters();
    return true;
}

void MutexObject::Abandon(pid_t thread)
{
    const std::lock_guard lock(mutex_);
    if (owner_ != thread)
    {
        return;
    }
    owner_ = 0;
    depth_ = 0;
    if (file_)
    {
        SetByteLock(file_->File(), ownerByte, F_UNLCK); // the mark stays
    }
    else
    {
        abandoned_ = true;
    }
}

void AbandonAllOfThread(void*)
{
    const pid_t thread = CallingThread();
    std::vector<std::shared_ptr<MutexObject>> owned;
    {
        Mutexes& mutexes = TheMutexes();
        const std::lock_guard lock(mutexes.mutex);
        const auto [first, last] = mutexes.owned.equal_range(thread);
        for (auto entry = first; entry != last; ++entry)
        {
            if (auto object = entry->second.lock())
            {
                owned.push_back(std::move(object));
            }
        }
        mutexes.owned.erase(first, last);
    }
    for (const auto& object : owned)
    {
        object->Abandon(thread);
    }
    if (!owned.empty())
    {
        NotifyWaiters();
    }
}

// The mutex of that name, made or joined. Null with the last error set.
std::shared_ptr<MutexObject> EnterNamed(const WCHAR* name, NamedFile::Access access, bool& existed)
{
    const auto path = NamedObjectPath(name);
    if (!path)
    {
        return nullptr;
    }
    Mutexes& mutexes = TheMutexes();
    const std::lock_guard lock(mutexes.mutex);
    if (auto known = mutexes.named[*path].lock())
    {
        existed = true;
        return known;
    }
    constexpr std::uint8_t notOwned = 0;
    auto file = NamedFile::Enter(*path, NamedKind::Mutex, access, &existed, &notOwned, sizeof notOwned);
    if (!file)
    {
        mutexes.named.erase(*path);
        return nullptr;
    }
    auto made = std::make_shared<MutexObject>(std::move(file));
    mutexes.named[*path] = made;
    return made;
}
} // namespace
} // namespace sndxposix

using namespace sndxposix;

extern "C" HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL initialOwner, LPCWSTR name)
{
    const auto body = [&]() -> HANDLE
    {
        bool existed = false;
        const auto object = name == nullptr || *name == 0
                                ? std::make_shared<MutexObject>(nullptr)
                                : EnterNamed(name, NamedFile::Access::Create, existed);
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
    const auto object = EnterNamed(name, NamedFile::Access::Open, existed);
    return object ? InsertHandle(object) : nullptr;
}

extern "C" BOOL WINAPI ReleaseMutex(HANDLE mutex)
{
    const auto object = LookupHandleFor<MutexObject>("ReleaseMutex", mutex);
    return object && (object->Release() || FailWith(ERROR_NOT_OWNER));
}
