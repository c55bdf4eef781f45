#include "gen/stringtools.h"

#include <limits>

#include <stdio.h>
#include <string.h>

#include "gen/debug.h"

std::size_t tstrlen(const WCHAR* sz)
{
    LDEBUGVALIDPTRREAD(sz);
    std::size_t uLength = 0;
    while (sz != nullptr && sz[uLength] != 0)
    {
        ++uLength;
    }
    return uLength;
}

WCHAR* tstrcpy(WCHAR* dst, const WCHAR* src)
{
    LDEBUGMUSTBESHORTSTR(src);
    LDEBUGVALIDPTRREAD(src);
    LDEBUGVALIDPTRWRITE(dst);
    if (dst == nullptr)
    {
        return dst;
    }
    WCHAR* pOut = dst;
    for (const WCHAR* pIn = src; pIn != nullptr && *pIn != 0; ++pIn)
    {
        *pOut++ = *pIn;
    }
    *pOut = 0;
    return dst;
}

void tstrcat(WCHAR* dst, const WCHAR* src)
{
    LDEBUGVALIDPTRWRITE(dst);
    if (dst != nullptr)
    {
        tstrcpy(dst + tstrlen(dst), src);
    }
}

namespace
{
template <class TChar>
std::size_t CopyBounded(TChar* dst, const TChar* src, std::size_t size)
{
    if (size == 0)
    {
        return 0;
    }
    LDEBUGVALIDPTRREAD(src);
    LDEBUGVALIDPTRWRITE(dst);
    if (dst == nullptr)
    {
        return 0;
    }
    std::size_t uCopied = 0;
    while (src != nullptr && src[uCopied] != 0 && uCopied < size - 1)
    {
        dst[uCopied] = src[uCopied];
        ++uCopied;
    }
    dst[uCopied] = 0;
    return uCopied;
}

// Of all letters only A to Z (contract.md O7). Unsigned, so that a unit above 0x7FFF stays the greater one.
std::uint32_t FoldUnit(WCHAR c)
{
    const std::uint32_t u = c;
    return u >= 'A' && u <= 'Z' ? u - 'A' + 'a' : u;
}

bool IsWhiteSpace(WCHAR c)
{
    return c == TEXT(' ') || (c >= TEXT('\t') && c <= TEXT('\r'));
}
} // namespace

std::size_t tstrlcpy(WCHAR* dst, const WCHAR* src, std::size_t size)
{
    return CopyBounded(dst, src, size);
}

std::size_t tstrlcpy(WCHAR* dst, const WCHAR* src)
{
    return CopyBounded(dst, src, LSTR);
}

std::size_t tstrlcpy(char* dst, const char* src, std::size_t size)
{
    return CopyBounded(dst, src, size);
}

std::int32_t tstricmp(const WCHAR* a, const WCHAR* b)
{
    return tstrnicmp(a, b, std::numeric_limits<std::size_t>::max());
}

std::int32_t tstrnicmp(const WCHAR* a, const WCHAR* b, std::size_t count)
{
    static const WCHAR szEmpty[] = {0};
    LDEBUGVALIDPTRREAD(a);
    LDEBUGVALIDPTRREAD(b);
    a = a == nullptr ? szEmpty : a;
    b = b == nullptr ? szEmpty : b;
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::uint32_t uA = FoldUnit(a[i]);
        const std::uint32_t uB = FoldUnit(b[i]);
        if (uA != uB)
        {
            return uA < uB ? -1 : 1;
        }
        if (uA == 0)
        {
            break;
        }
    }
    return 0;
}

std::int32_t ttoi(const WCHAR* sz)
{
    LDEBUGVALIDPTRREAD(sz);
    if (sz == nullptr)
    {
        return 0;
    }
    while (IsWhiteSpace(*sz))
    {
        ++sz;
    }
    const bool bNegative = *sz == TEXT('-');
    if (*sz == TEXT('-') || *sz == TEXT('+'))
    {
        ++sz;
    }
    constexpr std::int64_t nMax = std::numeric_limits<std::int32_t>::max();
    std::int64_t nValue = 0;
    for (; *sz >= TEXT('0') && *sz <= TEXT('9'); ++sz)
    {
        // Clamped one above the range, so that the lowest number stays reachable with the sign.
        nValue = nValue * 10 + (*sz - TEXT('0'));
        nValue = nValue > nMax + 1 ? nMax + 1 : nValue;
    }
    if (bNegative)
    {
        return static_cast<std::int32_t>(-nValue);
    }
    return static_cast<std::int32_t>(nValue > nMax ? nMax : nValue);
}

std::int32_t LStringToIntDefault(const WCHAR* sz, std::int32_t nDefault)
{
    LDEBUGVALIDPTRREAD(sz);
    return sz == nullptr || sz[0] == 0 ? nDefault : ttoi(sz);
}

std::int32_t tsprintf(WCHAR* buf, const WCHAR* format, ...)
{
    va_list args;
    va_start(args, format);
    const std::int32_t nWritten =
        _vsnwprintf(buf, static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()), format, args);
    va_end(args);
    return nWritten;
}

void tsnprintf(WCHAR* buf, std::size_t count, const WCHAR* format, ...)
{
    va_list args;
    va_start(args, format);
    lwvsnprintf(buf, count, format, args);
    va_end(args);
}

void tsnprintf(char* buf, std::size_t count, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    lcvsnprintf(buf, count, format, args);
    va_end(args);
}

namespace
{
int Format(WCHAR* buf, std::size_t count, const WCHAR* format, va_list args)
{
    return _vsnwprintf(buf, count, format, args);
}

int Format(char* buf, std::size_t count, const char* format, va_list args)
{
    return _vsnprintf(buf, count, format, args);
}

template <class TChar>
bool FormatCut(TChar* buf, std::size_t count, const TChar* format, va_list args)
{
    va_list again;
    va_copy(again, args);
    int nWritten = Format(buf, count, format, args);
    if (nWritten < 0)
    {
        // Too long, or a conversion that failed in the runtime, which then writes no terminator: nobody may
        // see stale memory behind it. So once more, into a cleared buffer; clearing first would cost every
        // text.
        memset(buf, 0, count * sizeof(TChar));
        nWritten = Format(buf, count, format, again);
    }
    va_end(again);
    const bool bFits = nWritten >= 0 && static_cast<std::size_t>(nWritten) < count;
    if (!bFits)
    {
        buf[LCutPosition(buf, count - 1)] = 0;
        buf[count - 1] = 0;
    }
    return bFits;
}

// The messages of the two forms differ in the formatter's name only; support searches for either.
template <class TChar>
void FormatReported(TChar* buf, std::size_t count, const TChar* format, va_list args, const char* szNegative,
                    const char* szOverflow)
{
    const auto nCount = static_cast<std::int32_t>(count);
    if (nCount < 0)
    {
        LDebugTraceError(szNegative);
    }
    if (nCount <= 0 || FormatCut(buf, static_cast<std::size_t>(nCount), format, args))
    {
        return;
    }
    LDebugTraceError(szOverflow);
    TChar szShown[LSTR];
    const std::size_t uShown = tstrlcpy(szShown, buf, LSTR);
    szShown[LCutPosition(buf, uShown)] = 0;
    LDebugTraceError("String: ", szShown);
}
} // namespace

bool LFormatCut(char* buf, std::size_t count, const char* format, va_list args)
{
    return FormatCut(buf, count, format, args);
}

void lwvsnprintf(WCHAR* buf, std::size_t count, const WCHAR* format, va_list args)
{
    FormatReported(buf, count, format, args, "lwvsnprintf called with an invalid Count (negative)",
                   "lwvsnprintf - string overflowed in (t)snprintf - check your output buffer size");
}

void lcvsnprintf(char* buf, std::size_t count, const char* format, va_list args)
{
    FormatReported(buf, count, format, args, "lcvsnprintf called with an invalid Count (negative)",
                   "lcvsnprintf - string overflowed in (t)snprintf - check your output buffer size");
}

std::size_t LCutPosition(const char* sz, std::size_t uAt)
{
    const auto unit = [sz](std::size_t i) { return static_cast<unsigned char>(sz[i]); };
    std::size_t uStart = uAt;
    while (uStart > 0 && uAt - uStart < 3 && (unit(uStart) & 0xC0) == 0x80)
    {
        --uStart;
    }
    const bool bSplit = uStart < uAt && unit(uStart) >= 0xC0;
    return bSplit ? uStart : uAt;
}

std::size_t LCutPosition(const WCHAR* sz, std::size_t uAt)
{
    const bool bSplit =
        uAt > 0 && sz[uAt] >= 0xDC00 && sz[uAt] <= 0xDFFF && sz[uAt - 1] >= 0xD800 && sz[uAt - 1] <= 0xDBFF;
    return bSplit ? uAt - 1 : uAt;
}

WCHAR* LStringReplaceChar(WCHAR* sz, WCHAR cWhat, WCHAR cWith)
{
    if (cWhat == 0)
    {
        LDebugTraceError("LStringReplaceChar cWhat == 0");
    }
    if (cWith == 0)
    {
        LDebugTraceError("LStringReplaceChar cWith == 0");
    }
    if (cWhat == cWith)
    {
        LDebugTraceError("LStringReplaceChar cWhat == cWith");
    }
    // The length is taken first: a cWith of 0 would end the string under the search.
    const std::size_t uLength = tstrlen(sz);
    for (std::size_t i = 0; i < uLength; ++i)
    {
        sz[i] = sz[i] == cWhat ? cWith : sz[i];
    }
    return sz;
}

// --- LStringListTemplate ---

template <class TChar>
LStringListTemplate<TChar>::LStringListTemplate() : pList(nullptr), uCount(0), uCapacity(0)
{
    static_assert(offsetof(LStringListTemplate, uCount) == 8 &&
                  offsetof(LStringListTemplate, uCapacity) == 16); // contract.md M5
    constexpr std::size_t uFirstSlots = 256;
    // The name in the record and in reports is the same for every text unit (contract.md T28, T31).
    pList = LNEW("LStringListTemplate<wchar_t>::LStringListTemplate") TChar* [uFirstSlots];
    if (pList != nullptr)
    {
        uCapacity = uFirstSlots - 1;
        pList[0] = nullptr;
    }
}

template <class TChar>
LStringListTemplate<TChar>::~LStringListTemplate()
{
    for (std::uint64_t i = 0; i < uCount; ++i)
    {
        delete[] pList[i];
    }
    delete[] pList;
}

template <class TChar>
TChar* LStringListTemplate<TChar>::Add(std::size_t uChars)
{
    // A count whose bytes would wrap saturates, so that an absurd request fails instead of giving a short
    // block. Room for the terminator is kept even when none was asked for.
    constexpr std::size_t uMost = std::numeric_limits<std::size_t>::max() / sizeof(TChar) / 2;
    const std::size_t uRoom = uChars == 0 ? 1 : uChars > uMost ? uMost : uChars;
    TChar* sz = LNEW("LStringListTemplate<wchar_t>::Add") TChar[uRoom];
    if (sz == nullptr)
    {
        LDebugTraceFunction("LStringListTemplate<wchar_t>::Add", true,
                            "Unable to create new string - new failed");
        return nullptr;
    }
    sz[0] = 0;
    if (uCount == uCapacity)
    {
        const std::uint64_t uSlots = 8 * (uCapacity + 1);
        TChar** pGrown = LNEW("LStringListTemplate<wchar_t>::Add") TChar* [uSlots];
        if (pGrown == nullptr)
        {
            LDebugTraceFunction("LStringListTemplate<wchar_t>::Add", true,
                                "Unable to resize the list - new failed");
            delete[] sz;
            return nullptr;
        }
        for (std::uint64_t i = 0; i < uCount; ++i)
        {
            pGrown[i] = pList[i];
        }
        delete[] pList;
        pList = pGrown;
        uCapacity = uSlots - 1;
    }
    pList[uCount] = sz;
    ++uCount;
    pList[uCount] = nullptr;
    return sz;
}

template <class TChar>
void LStringListTemplate<TChar>::Add(const TChar* sz)
{
    const std::size_t uLength = tstrlen(sz);
    TChar* szCopy = Add(uLength + 1);
    if (szCopy != nullptr)
    {
        for (std::size_t i = 0; i < uLength; ++i)
        {
            szCopy[i] = sz[i];
        }
        szCopy[uLength] = 0;
    }
}

template <class TChar>
TChar* LStringListTemplate<TChar>::Get(std::size_t i) const
{
    return pList == nullptr ? nullptr : pList[i];
}

template class LStringListTemplate<WCHAR>;
