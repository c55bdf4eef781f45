// Locks, events, mutexes and waiting within one process.

#include <functional>
#include <thread>

#include <gtest/gtest.h>
#include <windows.h>

#include "tests/platform/handle.h"

namespace
{
using namespace sndxtest;

TEST(CriticalSection, IsRecursiveAndExcludesOtherThreads)
{
    CRITICAL_SECTION section;
    InitializeCriticalSectionEx(&section, 0, CRITICAL_SECTION_NO_DEBUG_INFO);
    int counter = 0; // without the lock ThreadSanitizer and the sum would tell
    const auto count = [&]
    {
        for (int i = 0; i < 20000; ++i)
        {
            EnterCriticalSection(&section);
            EnterCriticalSection(&section);
            LeaveCriticalSection(&section);
            ++counter;
            LeaveCriticalSection(&section);
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 40000);
    DeleteCriticalSection(&section);
}

TEST(Event, ManualResetStaysAutoResetLetsOneThrough)
{
    Handle manual(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Handle automatic(CreateEventW(nullptr, FALSE, TRUE, nullptr));
    EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(manual));
    EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(manual, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(automatic, 0), WAIT_TIMEOUT);
    const HANDLE closed = manual;
    manual.Close();
    EXPECT_EQ(ErrorOf(SetEvent(closed)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForSingleObject(closed, 0), WAIT_FAILED);
}

TEST(Wait, TimeOutsAreKeptAndSignalsEndThem)
{
    const Handle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const HANDLE events[] = {event};
    std::thread setter;
    const struct
    {
        long long milliseconds;
        DWORD result;
        std::function<DWORD()> wait;
    } cases[] = {
        {60, WAIT_TIMEOUT, [&] { return WaitForSingleObject(event, 60); }},
        {60, WAIT_TIMEOUT, [&] { return MsgWaitForMultipleObjects(1, events, FALSE, 60, QS_ALLINPUT); }},
        {40, WAIT_TIMEOUT,
         []
         {
             Sleep(40);
             return DWORD{WAIT_TIMEOUT};
         }},
        {30, WAIT_OBJECT_0,
         [&]
         {
             setter = std::thread(
                 [&]
                 {
                     Sleep(30);
                     SetEvent(event);
                 });
             return WaitForSingleObject(event, INFINITE);
         }},
    };
    for (const auto& each : cases)
    {
        const Stopwatch time;
        EXPECT_EQ(each.wait(), each.result);
        // A few ms early are the coarse clocks' due, 250 ms late a loaded machine's.
        EXPECT_GE(time.Milliseconds(), each.milliseconds - 5);
        EXPECT_LE(time.Milliseconds(), each.milliseconds + 250);
    }
    setter.join();
}

TEST(Wait, SeveralObjectsGiveTheIndexOfTheFirstSignalled)
{
    const Handle first(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Handle second(CreateEventW(nullptr, FALSE, TRUE, nullptr));
    const Handle third(CreateEventW(nullptr, FALSE, TRUE, nullptr));
    const HANDLE events[] = {first, second, third};
    for (const DWORD result : {WAIT_OBJECT_0 + 1, WAIT_OBJECT_0 + 2, static_cast<DWORD>(WAIT_TIMEOUT)})
    {
        EXPECT_EQ(MsgWaitForMultipleObjects(3, events, FALSE, 20, QS_ALLINPUT), result);
    }
}

TEST(Mutex, CountsItsOwnersEntriesAndRefusesOthers)
{
    const Handle mutex(CreateMutexW(nullptr, TRUE, nullptr));
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
    std::thread(
        [&]
        {
            EXPECT_EQ(WaitForSingleObject(mutex, 20), WAIT_TIMEOUT);
            EXPECT_EQ(ErrorOf(ReleaseMutex(mutex)), ERROR_NOT_OWNER);
        })
        .join();
    EXPECT_TRUE(ReleaseMutex(mutex));
    EXPECT_EQ(ErrorOf(ReleaseMutex(mutex)), ERROR_NOT_OWNER);
}

TEST(Mutex, IsAbandonedOnceByTheEndOfItsThread)
{
    for (const WCHAR* name : {static_cast<const WCHAR*>(nullptr), TEXT("sndxtest abandoned")})
    {
        const Handle mutex(CreateMutexW(nullptr, FALSE, name));
        std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0); }).join();
        for (const DWORD result : {WAIT_ABANDONED, WAIT_OBJECT_0})
        {
            EXPECT_EQ(WaitForSingleObject(mutex, 1000), result);
            EXPECT_TRUE(ReleaseMutex(mutex));
        }
    }
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
            PostThreadMessageW(self, WM_QUIT, 3, 0);
        });
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, MsgWaitForMultipleObjects(0, nullptr, FALSE, 5000, QS_ALLINPUT));
    poster.join();
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    // What has been seen does not end a wait again.
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT));
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(UINT{WM_USER + 1}, message.message);
    EXPECT_EQ(WPARAM{7}, message.wParam);
    EXPECT_EQ(LPARAM{8}, message.lParam);
    EXPECT_FALSE(GetMessageW(&message, nullptr, 0, 0));
    EXPECT_EQ(WPARAM{3}, message.wParam);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
}
} // namespace
