#pragma once
// What the fuzz targets share. A target makes a case of the bytes that the fuzzer gives it and states what
// must hold for every case; the sanitizers watch what is read and written meanwhile.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "tools/text.h"

// Anything else is a finding.
#define MUST(condition) ((condition) ? void() : sndxfuzz::Violated(#condition, __FILE__, __LINE__))

namespace sndxfuzz
{
using sndxtools::WideString;
using Lines = std::vector<std::string>;

[[noreturn]] inline void Violated(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s(%d): does not hold: %s\n", file, line, condition);
    std::abort();
}

// What the product has reported since the last call, "**text" for an error line; of targets that link
// reports.cpp.
Lines TakeLines();

// A text of at most that many units, none of them a terminator. Small numbers of the alphabet come often:
// what matters to paths, character sets and formats.
inline WideString ConsumeWide(FuzzedDataProvider& input, std::size_t most)
{
    static const char16_t often[] = u"/\\.:aA\u00e4\u20ac\U0001f600\xd83d\xde00\r\n%";
    WideString text(input.ConsumeIntegralInRange<std::size_t>(0, most), WCHAR{'x'});
    for (WCHAR& unit : text)
    {
        const auto byte = input.ConsumeIntegral<unsigned char>();
        unit = byte < 0xC0 ? often[byte % (std::size(often) - 1)] : input.ConsumeIntegral<char16_t>();
        unit = unit == 0 ? WCHAR{'0'} : unit;
        if (input.remaining_bytes() == 0)
        {
            break; // the rest stays as it is: long texts of short inputs
        }
    }
    return text;
}

// A copy that ends where the text ends, so that a look behind it shows.
template <class Unit>
std::vector<Unit> Exact(const std::basic_string<Unit>& text)
{
    return {text.c_str(), text.c_str() + text.size() + 1};
}

// A buffer that ends where its size says, full of what nobody wrote.
template <class Unit>
std::vector<Unit> Buffer(std::size_t size)
{
    return std::vector<Unit>(size, static_cast<Unit>('#'));
}

// A file of the layer's, as a whole.
inline void WriteFileOf(const WCHAR* path, const std::string& content)
{
    const HANDLE file =
        CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD count = 0;
    MUST(WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &count, nullptr));
    CloseHandle(file);
}

inline std::string ReadFileOf(const WCHAR* path)
{
    std::string content(1 << 20, ' ');
    const HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    DWORD count = 0;
    MUST(ReadFile(file, content.data(), static_cast<DWORD>(content.size()), &count, nullptr));
    CloseHandle(file);
    content.resize(count);
    return content;
}

// A pair of surrogates stays whole: where a text may end that is cut at `at`.
inline std::size_t CutAt(const std::u16string& text, std::size_t at)
{
    const bool splits =
        at > 0 && at < text.size() && (text[at] & 0xFC00) == 0xDC00 && (text[at - 1] & 0xFC00) == 0xD800;
    return splits ? at - 1 : at;
}

// The same of a UTF-8 sequence.
inline std::size_t CutAt(const std::string& text, std::size_t at)
{
    std::size_t start = at; // of the sequence that a cut there splits, if it is one
    while (start > 0 && at - start < 3 && (text[start] & 0xC0) == 0x80)
    {
        --start;
    }
    return (text[start] & 0xC0) == 0xC0 ? start : at;
}
} // namespace sndxfuzz
