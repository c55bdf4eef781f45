#pragma once
// Parts of expected trace lines that a test cannot write down.

#include <regex>
#include <string>
#include <vector>

#include <windows.h>

#include "tests/support/text.h"
#include "tests/support/tracefile.h"

namespace sndxtest
{
// Replaces the line number of an assertion report by N: it moves with every edit of the product.
inline std::vector<std::string> WithoutLineNumbers(std::vector<std::string> texts)
{
    static const std::regex check("\\.cpp line: [1-9][0-9]*$");
    static const std::regex assertion("\\.cpp\\([1-9][0-9]*\\)$");
    for (std::string& text : texts)
    {
        text = std::regex_replace(text, check, ".cpp line: N");
        text = std::regex_replace(text, assertion, ".cpp(N)");
    }
    return texts;
}

// The lines of this process. A child shares the trace file, since its program is the same; the only line that
// a child of these tests writes is the one of the registry of COM objects at its end.
inline std::vector<std::string> OwnTexts(const TraceCapture& trace)
{
    std::vector<std::string> texts = trace.Texts();
    std::erase(texts, "LComDiagnostic::~LComDiagnostic");
    return texts;
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

// What the bounded formatter reports of a text that does not fit: 259 characters of what it kept.
inline std::vector<std::string> OverflowReport(const std::string& text)
{
    return {"**lwvsnprintf - string overflowed in (t)snprintf - check your output buffer size",
            "**String: " + text.substr(0, 259)};
}
} // namespace sndxtest
