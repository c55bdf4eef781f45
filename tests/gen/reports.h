#pragma once
// Expectations of what the product reports: a whole trace line each, with "#" for source lines.

#include <cctype>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/tracefile.h"

namespace sndxtest
{
inline std::vector<std::string> WithoutLineNumbers(std::vector<std::string> texts)
{
    for (std::string& text : texts)
    {
        const bool inParentheses = text.ends_with(')');
        const std::size_t end = text.size() - (inParentheses ? 1 : 0);
        std::size_t begin = end;
        while (begin > 0 && std::isdigit(static_cast<unsigned char>(text[begin - 1])))
        {
            --begin;
        }
        const std::string before = text.substr(0, begin);
        if (begin < end && (inParentheses ? before.ends_with('(') : before.ends_with(" line: ")))
        {
            text.replace(begin, end - begin, "#");
        }
    }
    return texts;
}

inline std::vector<std::string> Reports(const TraceCapture& trace)
{
    return WithoutLineNumbers(trace.Texts());
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

// The two error lines of a bounded formatter ("lw" or "lc") that cut a text, shown from its beginning.
inline std::vector<std::string> Overflow(const std::string& formatter, const std::string& shown)
{
    return {"**" + formatter + "vsnprintf - string overflowed in (t)snprintf - check your output buffer size",
            "**String: " + shown};
}

template <class... Lines>
std::vector<std::string> Join(std::vector<std::string> texts, const Lines&... lines)
{
    (texts.push_back(lines), ...);
    return texts;
}
} // namespace sndxtest
