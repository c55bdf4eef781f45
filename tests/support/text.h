#pragma once
// Text in tests is UTF-8 std::string, so that one expectation serves both targets.

#include <string>
#include <vector>

#include "tools/text.h"

namespace sndxtest
{
using Lines = std::vector<std::string>;
using sndxtools::Utf8;
using sndxtools::Wide;
using sndxtools::WideString;

// Null gives "(null pointer)".
inline std::string Utf8(const WCHAR* text)
{
    return text == nullptr ? "(null pointer)" : Utf8(sndxtools::WideView(text));
}
} // namespace sndxtest
