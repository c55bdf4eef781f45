#include "diag/leftopen.h"

#include "win32/library.h"

namespace
{
// What the system tells of a handle without asking whoever drives the object (ObjectBasicInformation).
struct HandleFacts
{
    std::uint32_t uAttributes;
    std::uint32_t uGrantedAccess;
    std::uint32_t uHandleCount; // in all processes
    std::uint32_t uPointerCount;
    std::uint32_t uReserved[10];
};
static_assert(sizeof(HandleFacts) == 56);
using QueryObject = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);

// Could be ours: open for reading and writing, and in no other process. So nobody who is alive is inside the
// object, and asking it cannot hang, as a pipe would do that another process reads.
bool IsCandidate(QueryObject pQuery, HANDLE hValue)
{
    constexpr int nBasicInformation = 0;
    constexpr std::uint32_t uReadAndWrite =
        0x0012019F; // as the system notes GENERIC_READ and GENERIC_WRITE of a file
    HandleFacts facts = {};
    return pQuery(hValue, nBasicInformation, &facts, sizeof(facts), nullptr) >= 0 &&
           facts.uGrantedAccess == uReadAndWrite && facts.uHandleCount == 1;
}

bool IsSameTime(const FILETIME& a, const FILETIME& b)
{
    return a.dwLowDateTime == b.dwLowDateTime && a.dwHighDateTime == b.dwHighDateTime;
}

// By size and times: a handle of our own to compare with would be one more open.
bool IsFile(HANDLE hValue, const WIN32_FILE_ATTRIBUTE_DATA& file)
{
    BY_HANDLE_FILE_INFORMATION found = {};
    return GetFileInformationByHandle(hValue, &found) && found.nFileSizeHigh == file.nFileSizeHigh &&
           found.nFileSizeLow == file.nFileSizeLow &&
           IsSameTime(found.ftLastWriteTime, file.ftLastWriteTime) &&
           IsSameTime(found.ftCreationTime, file.ftCreationTime);
}
} // namespace

HANDLE LFindLeftOpen(const WCHAR* szPath)
{
    // The thread may have died inside the open itself, before anybody could note the handle; so every value
    // is looked at. Bounded: by the handles that a large Explorer has, and in time.
    constexpr std::uintptr_t uEnd = 0x20000;
    constexpr std::uint32_t uMostMs = 100;
    const HMODULE hNtdll = GetModuleHandleW(TEXT("ntdll.dll"));
    const auto pQuery =
        LFunctionCast<QueryObject>(hNtdll == nullptr ? nullptr : GetProcAddress(hNtdll, "NtQueryObject"));
    WIN32_FILE_ATTRIBUTE_DATA trace = {};
    if (pQuery == nullptr || !GetFileAttributesExW(szPath, GetFileExInfoStandard, &trace))
    {
        return nullptr;
    }
    const std::uint32_t uStart = GetTickCount();
    for (std::uintptr_t uValue = 4; uValue < uEnd && GetTickCount() - uStart < uMostMs; uValue += 4)
    {
        const auto hValue = reinterpret_cast<HANDLE>(uValue);
        if (IsCandidate(pQuery, hValue) && IsFile(hValue, trace))
        {
            return hValue;
        }
    }
    return nullptr;
}
