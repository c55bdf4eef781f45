// Message queues of threads, for programs without windows, and the announcement that the program is idle.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <map>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/environment.h"
#include "posix/waiting.h"
#include "sndx/processes.h"

namespace sndxposix
{
namespace
{
struct Queue
{
    std::mutex mutex;
    std::deque<MSG> messages;
    bool hasNew = false; // since the thread last looked
};

// Never destroyed, as a thread may outlive the library's static objects.
struct Queues
{
    std::mutex mutex;
    std::map<DWORD, std::shared_ptr<Queue>> byThread;
    pthread_key_t own{}; // an OwnQueue*
};

struct OwnQueue
{
    DWORD thread;
    std::shared_ptr<Queue> queue;
};

void RemoveQueue(void* own);

Queues& TheQueues()
{
    static Queues& queues = *[]
    {
        PinLibrary();
        auto* made = new Queues;
        pthread_key_create(&made->own, &RemoveQueue);
        return made;
    }();
    return queues;
}

void RemoveQueue(void* own)
{
    const std::unique_ptr<OwnQueue> gone(static_cast<OwnQueue*>(own));
    Queues& queues = TheQueues();
    const std::lock_guard lock(queues.mutex);
    queues.byThread.erase(gone->thread);
}

Queue& QueueOfThisThread()
{
    Queues& queues = TheQueues();
    auto* own = static_cast<OwnQueue*>(pthread_getspecific(queues.own));
    if (own == nullptr)
    {
        own = new OwnQueue{GetCurrentThreadId(), std::make_shared<Queue>()};
        pthread_setspecific(queues.own, own);
        const std::lock_guard lock(queues.mutex);
        queues.byThread[own->thread] = own->queue;
    }
    return *own->queue;
}

// first and last 0 let every message through; WM_QUIT always passes.
bool Take(MSG& message, UINT first, UINT last, bool remove)
{
    Queue& queue = QueueOfThisThread();
    const std::lock_guard lock(queue.mutex);
    queue.hasNew = false;
    const auto found = std::find_if(queue.messages.begin(), queue.messages.end(),
                                    [&](const MSG& queued)
                                    {
                                        return (first == 0 && last == 0) || queued.message == WM_QUIT ||
                                               (queued.message >= first && queued.message <= last);
                                    });
    if (found == queue.messages.end())
    {
        return false;
    }
    message = *found;
    if (remove)
    {
        queue.messages.erase(found);
    }
    return true;
}

// The descriptor on which the parent waits for this process to become idle; -1 for none.
std::atomic<int> idleDescriptor{-1};

// At load: takes the descriptor out of the environment, so that it does not pass on to this process's own
// children.
[[gnu::constructor]] void TakeIdleDescriptor()
{
    const char* text = std::getenv(idleVariable);
    if (text == nullptr)
    {
        return;
    }
    char* rest = nullptr;
    const long descriptor = std::strtol(text, &rest, 10);
    const unsigned long long inode = *rest == ':' ? std::strtoull(rest + 1, nullptr, 10) : 0;
    unsetenv(idleVariable);
    struct stat status
    {
    };
    // A program in between may have closed the descriptor and opened something else under its number.
    if (fstat(static_cast<int>(descriptor), &status) == 0 && S_ISFIFO(status.st_mode) &&
        status.st_ino == inode)
    {
        fcntl(static_cast<int>(descriptor), F_SETFD, FD_CLOEXEC);
        idleDescriptor = static_cast<int>(descriptor);
    }
}
} // namespace

void AnnounceIdle()
{
    const int descriptor = idleDescriptor.exchange(-1);
    if (descriptor < 0)
    {
        return;
    }
    // The pipe is empty, so this does not block. Closing says the same, should writing fail.
    const char idle = 1;
    [[maybe_unused]] const ssize_t written = write(descriptor, &idle, sizeof idle);
    close(descriptor);
}

bool HasNewMessages()
{
    Queue& queue = QueueOfThisThread();
    const std::lock_guard lock(queue.mutex);
    return queue.hasNew;
}
} // namespace sndxposix

using namespace sndxposix;

extern "C" BOOL WINAPI GetMessageW(LPMSG message, HWND, UINT first, UINT last)
{
    // Without bound: a message ends it.
    WaitUntil(
        [&]
        {
            if (Take(*message, first, last, true))
            {
                return true;
            }
            AnnounceIdle();
            return false;
        },
        INFINITE, std::chrono::hours(1));
    return message->message == WM_QUIT ? FALSE : TRUE;
}

extern "C" BOOL WINAPI PeekMessageW(LPMSG message, HWND, UINT first, UINT last, UINT remove)
{
    return Take(*message, first, last, (remove & PM_REMOVE) != 0) ? TRUE : FALSE;
}

extern "C" BOOL WINAPI PostThreadMessageW(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam)
{
    {
        Queues& queues = TheQueues();
        const std::lock_guard lock(queues.mutex);
        const auto found = queues.byThread.find(thread);
        if (found == queues.byThread.end())
        {
            return FailWith(ERROR_INVALID_THREAD_ID);
        }
        Queue& queue = *found->second;
        const std::lock_guard queueLock(queue.mutex);
        queue.messages.push_back({nullptr, message, wParam, lParam, GetTickCount(), {0, 0}});
        queue.hasNew = true;
    }
    NotifyWaiters();
    return TRUE;
}
