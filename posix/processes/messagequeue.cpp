// Message queues of threads, for programs without windows, and the announcement that the program is idle.

#include "posix/processes/messagequeue.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/base/locked.h"
#include "posix/sync/waiting.h"
#include "sndx/processes.h"

namespace sndxposix
{
namespace
{
struct Queue
{
    std::deque<MSG> messages;
    bool hasNew = false; // since the thread last looked
};

using Queues = std::map<DWORD, Queue>; // by thread

// Runs use(queue) on the calling thread's queue, which goes with the thread, under the lock of all queues.
template <class Use>
auto WithOwnQueue(Use use)
{
    struct Owner
    {
        const DWORD thread = GetCurrentThreadId();
        ~Owner() { Locked<Queues>()->erase(thread); }
    };
    static thread_local const Owner owner;
    const Locked<Queues> queues;
    return use((*queues)[owner.thread]);
}

// The descriptor on which the parent waits for this process to become idle; -1 for none.
std::atomic<int> idleDescriptor{-1};

// At load: takes the descriptor out of the environment, so that it does not pass on to this process's own
// children.
[[gnu::constructor]] void TakeIdleDescriptor()
{
    const char* const text = std::getenv(idleVariable);
    int descriptor = -1;
    ino_t inode = 0;
    const bool isGiven = text != nullptr && std::sscanf(text, "%d:%lu", &descriptor, &inode) == 2;
    unsetenv(idleVariable);
    struct stat status;
    // A program in between may have closed the descriptor and opened something else under its number.
    if (isGiven && fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode) && status.st_ino == inode)
    {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        idleDescriptor = descriptor;
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
    return WithOwnQueue([](const Queue& queue) { return queue.hasNew; });
}

extern "C" BOOL WINAPI PeekMessageW(LPMSG message, HWND, UINT, UINT, UINT remove)
{
    const auto take = [&](Queue& queue) -> BOOL
    {
        queue.hasNew = false;
        if (queue.messages.empty())
        {
            return FALSE;
        }
        *message = queue.messages.front();
        if ((remove & PM_REMOVE) != 0)
        {
            queue.messages.pop_front();
        }
        return TRUE;
    };
    return Guarded(FALSE, [&] { return WithOwnQueue(take); });
}

extern "C" BOOL WINAPI PostThreadMessageW(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam)
{
    const auto body = [&]() -> BOOL
    {
        const Locked<Queues> queues;
        const auto found = queues->find(thread);
        if (found == queues->end())
        {
            return FailWith(ERROR_INVALID_THREAD_ID);
        }
        found->second.messages.push_back({nullptr, message, wParam, lParam, GetTickCount(), {0, 0}});
        found->second.hasNew = true;
        return TRUE;
    };
    const BOOL isPosted = Guarded(FALSE, body);
    NotifyWaiters();
    return isPosted;
}
} // namespace sndxposix
