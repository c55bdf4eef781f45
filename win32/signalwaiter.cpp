#include "win32/signalwaiter.h"

LWaitResult LSimpleSignalWaiter::Sleep(std::uint32_t uMilliseconds)
{
    ::Sleep(uMilliseconds);
    return LWaitResult::Signalled;
}

LWaitResult LSimpleSignalWaiter::WaitSignal(HANDLE hObject, std::uint32_t uMilliseconds)
{
    return WaitForSingleObject(hObject, uMilliseconds) == WAIT_TIMEOUT ? LWaitResult::TimedOut
                                                                       : LWaitResult::Signalled;
}

LWaitResult LSimpleSignalWaiter::WaitSignalObjectGroup(const LSignalObjectGroup& group,
                                                       std::uint32_t uMilliseconds)
{
    const DWORD uResult =
        MsgWaitForMultipleObjects(group.idxSOArray, group.hObjects, FALSE, uMilliseconds, QS_ALLINPUT);
    return uResult < group.idxSOArray ? LWaitResult::Signalled : LWaitResult::TimedOut;
}
