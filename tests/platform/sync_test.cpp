// Mutexes that their threads leave behind, and messages that end waits.

#include <thread>

#include <gtest/gtest.h>

#include "tests/platform/handle.h"

namespace
{
using namespace sndxtest;

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
    const auto wait = [](DWORD milliseconds)
    { return MsgWaitForMultipleObjects(0, nullptr, FALSE, milliseconds, QS_ALLINPUT); };
    EXPECT_EQ(wait(10), WAIT_TIMEOUT);
    std::thread poster(
        [self = GetCurrentThreadId()]
        {
            Sleep(20);
            PostThreadMessageW(self, WM_APP, 7, 8);
            PostThreadMessageW(self, WM_QUIT, 3, 0);
        });
    EXPECT_EQ(wait(5000), WAIT_OBJECT_0);
    poster.join();
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(wait(10), WAIT_TIMEOUT) << "what has been seen does not end a wait again";
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, UINT{WM_APP});
    EXPECT_EQ(message.wParam, WPARAM{7});
    EXPECT_EQ(message.lParam, LPARAM{8});
    EXPECT_FALSE(GetMessageW(&message, nullptr, 0, 0));
    EXPECT_EQ(message.wParam, WPARAM{3});
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
}
} // namespace
