// In place of the trace file: keeps what is reported. What is between the reporting operations and the line
// is the product's own.

#include <utility>

#include "diag/tracefile.h"
#include "fuzz/fuzz.h"
#include "gen/debug.h"

namespace
{
sndxfuzz::Lines& Kept()
{
    // Lines come before the first and after the last static object.
    static auto& lines = *new sndxfuzz::Lines;
    return lines;
}
} // namespace

void LDebugWriteLine(const char* szText, bool bError)
{
    Kept().push_back((bError ? "**" : "") + std::string(szText == nullptr ? "!!! NULL !!!" : szText));
}

// Every line is formatted.
bool LDebugWriteJoined(std::initializer_list<const char*>, bool)
{
    return false;
}

sndxfuzz::Lines sndxfuzz::TakeLines()
{
    return std::exchange(Kept(), {});
}
