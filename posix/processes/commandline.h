#pragma once
// Command lines and their words.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sndxposix
{
// The first word, which names the program: up to the closing quote, or up to the first blank; and the rest.
// Backslashes and quotes inside it have no meaning.
std::pair<std::u16string, std::u16string_view> SplitProgram(std::u16string_view commandLine);
// The words behind the program, with quotes and backslashes as the runtime library's start-up reads them.
std::vector<std::u16string> SplitArguments(std::u16string_view rest);
} // namespace sndxposix
