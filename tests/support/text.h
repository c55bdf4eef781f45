#pragma once
// Text in tests is UTF-8 std::string, so that one expectation serves both targets.

#include <string>
#include <string_view>

#include <windows.h>

namespace sndxtest
{
using WideString = std::basic_string<WCHAR>;

// Lone surrogates and invalid bytes become U+FFFD. Null gives "(null pointer)".
std::string Utf8(const WCHAR* text);
std::string Utf8(const WideString& text);
WideString Wide(std::string_view utf8);
} // namespace sndxtest
