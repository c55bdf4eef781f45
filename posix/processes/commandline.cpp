// Command lines and their words.

#include "posix/processes/commandline.h"

#include <algorithm>
#include <fstream>

#include "posix/files/paths.h"
#include "posix/text/charsets.h"
#include "sndx/processes.h"

namespace sndxposix
{
namespace
{
constexpr std::u16string_view blanks = u" \t";

// The word as a command line has to spell it.
std::u16string QuoteArgument(std::u16string_view argument)
{
    if (!argument.empty() && argument.find_first_of(u" \t\"") == std::u16string_view::npos)
    {
        return std::u16string(argument);
    }
    std::u16string result = u"\"";
    std::size_t backslashes = 0;
    for (const char16_t c : argument)
    {
        if (c == u'"')
        {
            result.append(backslashes + 1, u'\\'); // the quote's own one and a second one for each before
        }
        backslashes = c == u'\\' ? backslashes + 1 : 0;
        result += c;
    }
    result.append(backslashes, u'\\');
    return result + u"\"";
}

// The process's own command line, as a parent would have written it.
std::u16string BuildCommandLine()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::u16string result;
    for (std::string word; std::getline(file, word, '\0');)
    {
        const bool isFirst = result.empty();
        result += isFirst ? u"" : u" ";
        result += QuoteArgument(isFirst && word.starts_with('/') ? ToWindowsPath(word) : Utf16(word));
    }
    return result;
}
} // namespace

std::pair<std::u16string, std::u16string_view> SplitProgram(std::u16string_view commandLine)
{
    const std::size_t begin = commandLine.starts_with(u'"') ? 1 : 0;
    const std::size_t end = std::min(
        begin == 1 ? commandLine.find(u'"', begin) : commandLine.find_first_of(blanks), commandLine.size());
    const std::size_t next = std::min(end + begin, commandLine.size()); // behind the quote
    return {std::u16string(commandLine.substr(begin, end - begin)), commandLine.substr(next)};
}

std::vector<std::u16string> SplitArguments(std::u16string_view rest)
{
    std::vector<std::u16string> result;
    for (;;)
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
        if (rest.empty())
        {
            return result;
        }
        std::u16string word;
        bool quoted = false;
        while (!rest.empty() && (quoted || blanks.find(rest[0]) == blanks.npos))
        {
            // Backslashes are halved before a quote, and an odd one makes it an ordinary character.
            const std::size_t backslashes = std::min(rest.find_first_not_of(u'\\'), rest.size());
            rest.remove_prefix(backslashes);
            const bool beforeQuote = rest.starts_with(u'"');
            word.append(beforeQuote ? backslashes / 2 : backslashes, u'\\');
            const bool isDouble = quoted && rest.starts_with(u"\"\""); // in a quoted part two quotes are one
            if (beforeQuote && backslashes % 2 == 0 && !isDouble)
            {
                quoted = !quoted;
                rest.remove_prefix(1);
            }
            else if (beforeQuote || backslashes == 0)
            {
                word += rest[0];
                rest.remove_prefix(beforeQuote && backslashes % 2 == 0 ? 2 : 1);
            }
        }
        result.push_back(std::move(word));
    }
}

extern "C" LPWSTR WINAPI GetCommandLineW()
{
    // Never destroyed: callers may keep the pointer.
    static std::u16string& commandLine = *new std::u16string(BuildCommandLine());
    return commandLine.data();
}
} // namespace sndxposix
