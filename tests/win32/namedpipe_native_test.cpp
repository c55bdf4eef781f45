// That the end of a cancelled write is waited for. The systems at hand end it within the cancellation, so
// that only the native layer can show that the product asks.

#include <gtest/gtest.h>

#include "sndxposix.h"
#include "win32/namedpipe.h"

namespace
{
TEST(CancelledWrite, IsWaitedFor)
{
    const HANDLE server = CreateNamedPipeW(TEXT("\\\\.\\pipe\\cancelled"), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE,
                                           1, 16, 16, 50, nullptr);
    LNamedPipe pipe(TEXT("cancelled"));
    LSimpleSignalWaiter waiter;
    sndxposix::FailCall("GetOverlappedResult", ERROR_INVALID_HANDLE);
    EXPECT_EQ(LNamedPipe::ProcessSendBytes(waiter, pipe, "0123456789abcdef", 16, 0), LWaitResult::Signalled);
    EXPECT_EQ(sndxposix::PendingFailures(), 1u) << "no cancelled write yet";
    EXPECT_EQ(LNamedPipe::ProcessSendBytes(waiter, pipe, "x", 1, 0), LWaitResult::TimedOut);
    EXPECT_EQ(sndxposix::PendingFailures(), 0u);
    sndxposix::ResetFailures();
    CloseHandle(server);
}
} // namespace
