// Locks, events, mutexes and waiting within one process.

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>
#include <windows.h>

namespace
{
using Clock = std::chrono::steady_clock;

long long MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// A few ms early are the coarse clocks' due, 250 ms late a loaded machine's.
void ExpectAbout(long long expected, long long measured)
{
    EXPECT_GE(measured, expected - 5);
    EXPECT_LE(measured, expected + 250);
}

TEST(CriticalSection, IsRecursiveAndExcludesOtherThreads)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EXPECT_TRUE(TryEnterCriticalSection(&section));
    LeaveCriticalSection(&section);
    std::thread([&] { EXPECT_FALSE(TryEnterCriticalSection(&section)); }).join();
    LeaveCriticalSection(&section);

    int counter = 0; // without the lock ThreadSanitizer and the sum would tell
    const auto count = [&]
    {
        for (int i = 0; i < 20000; ++i)
        {
            EnterCriticalSection(&section);
            ++counter;
            LeaveCriticalSection(&section);
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(40000, counter);
    DeleteCriticalSection(&section);
}

TEST(Event, ManualResetStaysAutoResetLetsOneThrough)
{
    const HANDLE manual = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE automatic = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(manual, 0));
    EXPECT_TRUE(SetEvent(manual));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(manual, 0));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(manual, 0));
    EXPECT_TRUE(ResetEvent(manual));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(manual, 0));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(automatic, 0));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(automatic, 0));
    CloseHandle(manual);
    CloseHandle(automatic);
    EXPECT_FALSE(SetEvent(manual));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
    EXPECT_EQ(DWORD{WAIT_FAILED}, WaitForSingleObject(manual, 0));
}

TEST(Event, AutoResetReleasesEachWaiterOnce)
{
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    constexpr int rounds = 200;
    std::atomic<int> released{0};
    const auto wait = [&]
    {
        for (int i = 0; i < rounds; ++i)
        {
            if (WaitForSingleObject(event, 5000) == WAIT_OBJECT_0)
            {
                ++released;
            }
        }
    };
    std::thread first(wait);
    std::thread second(wait);
    for (int i = 0; i < 2 * rounds; ++i)
    {
        SetEvent(event);
        while (released <= i)
        {
            std::this_thread::yield();
        }
        ASSERT_EQ(i + 1, released);
    }
    first.join();
    second.join();
    CloseHandle(event);
}

TEST(Wait, TimeOutsAreKept)
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    auto start = Clock::now();
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(event, 60));
    ExpectAbout(60, MillisecondsSince(start));
    start = Clock::now();
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, MsgWaitForMultipleObjects(1, &event, FALSE, 60, QS_ALLINPUT));
    ExpectAbout(60, MillisecondsSince(start));
    start = Clock::now();
    Sleep(40);
    ExpectAbout(40, MillisecondsSince(start));
    start = Clock::now();
    std::thread setter(
        [&]
        {
            Sleep(30);
            SetEvent(event);
        });
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(event, INFINITE));
    ExpectAbout(30, MillisecondsSince(start));
    setter.join();
    CloseHandle(event);
}

TEST(Wait, SeveralObjectsGiveTheIndexOfTheFirstSignalled)
{
    const HANDLE events[3] = {CreateEventW(nullptr, TRUE, FALSE, nullptr),
                              CreateEventW(nullptr, TRUE, TRUE, nullptr),
                              CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, WaitForMultipleObjects(3, events, FALSE, 1000));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 1}, MsgWaitForMultipleObjects(3, events, FALSE, 1000, QS_ALLINPUT));
    ResetEvent(events[1]);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0 + 2}, WaitForMultipleObjects(3, events, FALSE, 1000));
    EXPECT_EQ(DWORD{WAIT_FAILED}, WaitForMultipleObjects(0, events, FALSE, 0));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    for (const HANDLE event : events)
    {
        CloseHandle(event);
    }
}

TEST(Mutex, CountsItsOwnersEntriesAndRefusesOthers)
{
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 0));
    EXPECT_TRUE(ReleaseMutex(mutex));
    std::thread(
        [&]
        {
            EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(mutex, 20));
            EXPECT_FALSE(ReleaseMutex(mutex));
            EXPECT_EQ(DWORD{ERROR_NOT_OWNER}, GetLastError());
        })
        .join();
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(DWORD{ERROR_NOT_OWNER}, GetLastError());
    CloseHandle(mutex);
}

void ExpectAbandonedOnce(const WCHAR* name)
{
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, name);
    std::thread([&] { EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 0)); }).join();
    EXPECT_EQ(DWORD{WAIT_ABANDONED}, WaitForSingleObject(mutex, 1000));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 0));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(mutex, 0));
    EXPECT_TRUE(ReleaseMutex(mutex));
    CloseHandle(mutex);
}

TEST(Mutex, IsAbandonedByTheEndOfItsThread)
{
    ExpectAbandonedOnce(nullptr);
    ExpectAbandonedOnce(TEXT("sndxtest abandoned"));
}

TEST(Messages, EndTheWaitOnceAndComeInOrder)
{
    MSG message{};
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE); // makes the queue
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT));
    const DWORD self = GetCurrentThreadId();
    std::thread poster(
        [self]
        {
            Sleep(20);
            PostThreadMessageW(self, WM_USER + 1, 7, 8);
            PostThreadMessageW(self, WM_USER + 2, 0, 0);
            PostThreadMessageW(self, WM_QUIT, 3, 0);
        });
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, MsgWaitForMultipleObjects(0, nullptr, FALSE, 5000, QS_ALLINPUT));
    poster.join();
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    // What has been seen does not end a wait again.
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT));
    EXPECT_TRUE(GetMessageW(&message, nullptr, 0, 0));
    EXPECT_EQ(UINT{WM_USER + 1}, message.message);
    EXPECT_EQ(WPARAM{7}, message.wParam);
    EXPECT_EQ(LPARAM{8}, message.lParam);
    EXPECT_TRUE(GetMessageW(&message, nullptr, WM_USER + 2, WM_USER + 2));
    EXPECT_EQ(UINT{WM_USER + 2}, message.message);
    EXPECT_FALSE(GetMessageW(&message, nullptr, 0, 0));
    EXPECT_EQ(WPARAM{3}, message.wParam);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
}
} // namespace
