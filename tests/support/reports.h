#pragma once
// Expectations of what the product reports: a whole trace line each, with "#" for the line of a source file,
// which moves with every edit of the product.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/tracefile.h"

namespace sndxtest
{
constexpr char nullRead[] = "**LDEBUGVALIDPTRREAD attempting to read from a null ptr";
constexpr char nullWrite[] = "**LDEBUGVALIDPTRWRITE attempting to read from a null ptr";

inline bool UnderWine()
{
    return GetProcAddress(GetModuleHandleW(TEXT("kernel32.dll")), "wine_get_unix_file_name") != nullptr;
}

inline Lines WithoutLineNumbers(Lines texts)
{
    static const std::regex number("( line: |\\()[0-9]+(\\)?)$");
    for (std::string& text : texts)
    {
        text = std::regex_replace(text, number, "$1#$2");
    }
    return texts;
}

// What the function writes to the trace.
template <class Function>
Lines Traced(Function function)
{
    const TraceCapture trace;
    function();
    return WithoutLineNumbers(trace.Texts());
}

// The lines of this process. A child shares the trace file, since its program is the same; the only line that
// most children write is the one of the registry of COM objects at their end.
inline Lines OwnTexts(const TraceCapture& trace)
{
    Lines texts = trace.Texts();
    std::erase(texts, "LComDiagnostic::~LComDiagnostic");
    return texts;
}

// The error lines of an assertion report and of a failed check.
inline std::string Assertion(const std::string& function, const std::string& expression,
                             const std::string& file)
{
    return "**" + function + " ASSERTION FAILED " + expression + ":\r\n   " + file + "(#)";
}

inline std::string FailedCheck(const std::string& expression, const std::string& message,
                               const std::string& file)
{
    return "**ASSERTION FAILED (" + expression + ") \"" + message + "\" file: " + file + " line: #";
}

// The two error lines of a bounded formatter ("lw" or "lc") that cut a text: 259 bytes of it are shown.
inline Lines Overflow(const std::string& formatter, const std::string& text)
{
    return {"**" + formatter + "vsnprintf - string overflowed in (t)snprintf - check your output buffer size",
            "**String: " + text.substr(0, 259)};
}

// An address as the runtime's formatter writes it.
inline std::string Address(const void* p)
{
    char digits[17];
    std::snprintf(digits, sizeof(digits), "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(p)));
    return digits;
}

// The system's own text for an error code, with the line end that it carries.
inline std::string SystemText(DWORD error)
{
    WCHAR* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                       FORMAT_MESSAGE_IGNORE_INSERTS,
                   nullptr, error, 0x400, reinterpret_cast<WCHAR*>(&text), 0, nullptr);
    const std::string result = text == nullptr ? "(no system text)" : Utf8(text);
    LocalFree(text);
    return result;
}

inline Lines operator+(Lines first, const Lines& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline bool Contains(const Lines& lines, const std::string& line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// Whole lines in order; an expected line that ends in three dots only tells how the line begins.
inline testing::AssertionResult AreLines(const Lines& actual, const Lines& expected)
{
    const auto fits = [](const std::string& line, const std::string& wanted) {
        return wanted.ends_with("...") ? line.starts_with(wanted.substr(0, wanted.size() - 3))
                                       : line == wanted;
    };
    const auto [a, e] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end(), fits);
    if (a == actual.end() && e == expected.end())
    {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "from line " << a - actual.begin() << " on " << testing::PrintToString(Lines(a, actual.end()))
           << "\ninstead of " << testing::PrintToString(Lines(e, expected.end()));
}
} // namespace sndxtest
