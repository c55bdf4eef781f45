#pragma once
// UTF-8 and UTF-16, and the folding of letters for names.

#include <string>
#include <string_view>

namespace sndxposix
{
// What is invalid becomes U+FFFD.
std::string Utf8(std::u16string_view text);
std::u16string Utf16(std::string_view text);
// Capital letters become small ones, in every alphabet.
std::u16string FoldCase(std::u16string_view text);
} // namespace sndxposix
