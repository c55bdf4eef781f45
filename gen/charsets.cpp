#include "gen/charsets.h"

#include "gen/debug.h"
#include "gen/stringtools.h"

namespace
{
// The two directions of the system's conversion.
struct UTF8FromWide
{
    using From = WCHAR;
    using To = char;
    static std::int32_t Convert(const From* src, std::int32_t nLength, To* dst, std::int32_t nSize)
    {
        return WideCharToMultiByte(CP_UTF8, 0, src, nLength, dst, nSize, nullptr, nullptr);
    }
};

struct WideFromUTF8
{
    using From = char;
    using To = WCHAR;
    static std::int32_t Convert(const From* src, std::int32_t nLength, To* dst, std::int32_t nSize)
    {
        return MultiByteToWideChar(CP_UTF8, 0, src, nLength, dst, nSize);
    }
};

// What the system makes of the source, cut in front of the character that no longer fits. Always terminated.
template <class Direction>
void Convert(typename Direction::To* dst, const typename Direction::From* src, std::int32_t nSize)
{
    if (Direction::Convert(src, -1, dst, nSize) != 0)
    {
        return; // fits, terminator included
    }
    std::int32_t nLength = 0;
    while (src[nLength] != 0)
    {
        ++nLength;
    }
    // The longest beginning whose conversion leaves room for the terminator. Asking the system for the
    // length keeps one rule for invalid input; a cut text is rare, so that a search is cheap enough.
    std::int32_t nFits = 0;
    for (std::int32_t nTooLong = nLength + 1; nTooLong - nFits > 1;)
    {
        const std::int32_t nTry = nFits + (nTooLong - nFits) / 2;
        if (Direction::Convert(src, nTry, nullptr, 0) < nSize)
        {
            nFits = nTry;
        }
        else
        {
            nTooLong = nTry;
        }
    }
    nFits = static_cast<std::int32_t>(LCutPosition(src, static_cast<std::size_t>(nFits)));
    const std::int32_t nWritten = nFits == 0 ? 0 : Direction::Convert(src, nFits, dst, nSize - 1);
    dst[nWritten] = 0;
}

template <class Direction>
void CopyConverted(typename Direction::To* dst, const typename Direction::From* src, std::int32_t nSize)
{
    LDEBUGVALIDPTRREAD(src);
    if (src == nullptr)
    {
        dst[0] = 0;
    }
    else
    {
        Convert<Direction>(dst, src, nSize);
    }
    // Whether or not the text fitted: callers may rely on the buffer's last unit (docs/contract.md).
    dst[nSize - 1] = 0;
}
} // namespace

void LCopyUTF8FromUnicode(char* szUTF8, const WCHAR* szUnicode, std::size_t BufferSize)
{
    if (static_cast<const void*>(szUTF8) == static_cast<const void*>(szUnicode))
    {
        LDebugAssertFailed("LCopyUTF8FromUnicode", "(void*)(szUTF8) != (void*)(szUnicode)", __FILE__,
                           __LINE__);
    }
    const auto nSize = static_cast<std::int32_t>(BufferSize);
    if (nSize <= 0)
    {
        LDebugTraceError("LCopyUTF8FromUnicode called with BufferSize <= 0");
        return;
    }
    CopyConverted<UTF8FromWide>(szUTF8, szUnicode, nSize);
}

void LCopyUnicodeFromUTF8(WCHAR* szUnicode, const char* szUTF8, std::size_t BufferSizeChars)
{
    if (static_cast<const void*>(szUnicode) == static_cast<const void*>(szUTF8))
    {
        LDebugAssertFailed("LCopyUnicodeFromUTF8", "(void*)(szUnicode) != (void*)(szUTF8)", __FILE__,
                           __LINE__);
    }
    const auto nSize = static_cast<std::int32_t>(BufferSizeChars);
    if (nSize <= 0)
    {
        LDebugTraceError("LCopyUnicodeFromUTF8 called with BufferSizeChars <= 0");
        return;
    }
    CopyConverted<WideFromUTF8>(szUnicode, szUTF8, nSize);
}
