// Command lines and their words.

#include "posix/commandline.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include "posix/internal.h"
#include "sndx/memory.h"
#include "sndx/processes.h"

namespace sndxposix
{
namespace
{
bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}

// The process's own command line, as a parent would have written it.
std::u16string BuildCommandLine()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string words((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::u16string result;
    for (std::size_t begin = 0; begin < words.size();)
    {
        std::size_t end = words.find('\0', begin);
        end = end == std::string::npos ? words.size() : end;
        const std::string word = words.substr(begin, end - begin);
        result += begin == 0 ? u"" : u" ";
        result += QuoteArgument(begin == 0 && word.starts_with('/') ? ToWindowsPath(word) : Utf16(word));
        begin = end + 1;
    }
    return result;
}
} // namespace

std::pair<std::u16string, std::u16string_view> SplitProgram(std::u16string_view commandLine)
{
    std::size_t begin = 0;
    std::size_t end = 0;
    if (commandLine.starts_with(u'"'))
    {
        begin = 1;
        end = commandLine.find(u'"', begin);
    }
    else
    {
        end = commandLine.find_first_of(u" \t");
    }
    if (end == std::u16string_view::npos)
    {
        end = commandLine.size();
    }
    const std::size_t next = begin == 1 && end < commandLine.size() ? end + 1 : end;
    return {std::u16string(commandLine.substr(begin, end - begin)), commandLine.substr(next)};
}

std::vector<std::u16string> SplitArguments(std::u16string_view rest)
{
    std::vector<std::u16string> result;
    std::size_t at = 0;
    for (;;)
    {
        while (at < rest.size() && IsBlank(rest[at]))
        {
            ++at;
        }
        if (at == rest.size())
        {
            return result;
        }
        std::u16string word;
        bool quoted = false;
        while (at < rest.size() && (quoted || !IsBlank(rest[at])))
        {
            std::size_t backslashes = 0;
            while (at < rest.size() && rest[at] == u'\\')
            {
                ++backslashes;
                ++at;
            }
            const bool beforeQuote = at < rest.size() && rest[at] == u'"';
            word.append(beforeQuote ? backslashes / 2 : backslashes, u'\\');
            if (!beforeQuote)
            {
                if (at < rest.size() && backslashes == 0)
                {
                    word += rest[at++];
                }
                continue;
            }
            ++at;
            if (backslashes % 2 == 1)
            {
                word += u'"';
            }
            else if (quoted && at < rest.size() && rest[at] == u'"')
            {
                word += u'"'; // two quotes inside a quoted part are one
                ++at;
            }
            else
            {
                quoted = !quoted;
            }
        }
        result.push_back(std::move(word));
    }
}

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
} // namespace sndxposix

extern "C" LPWSTR WINAPI GetCommandLineW()
{
    // Never destroyed: callers may keep the pointer.
    static std::u16string& commandLine = *new std::u16string(sndxposix::BuildCommandLine());
    return commandLine.data();
}

extern "C" LPWSTR* WINAPI CommandLineToArgvW(LPCWSTR commandLine, int* count)
{
    auto [program, rest] = sndxposix::SplitProgram(commandLine);
    std::vector<std::u16string> words = sndxposix::SplitArguments(rest);
    words.insert(words.begin(), std::move(program));
    std::size_t units = 0;
    for (const auto& word : words)
    {
        units += word.size() + 1;
    }
    const std::size_t pointers = (words.size() + 1) * sizeof(LPWSTR);
    auto* result = static_cast<LPWSTR*>(GlobalAlloc(GMEM_FIXED, pointers + units * sizeof(WCHAR)));
    if (result == nullptr)
    {
        return nullptr;
    }
    auto* text = reinterpret_cast<WCHAR*>(reinterpret_cast<BYTE*>(result) + pointers);
    for (std::size_t i = 0; i < words.size(); ++i)
    {
        result[i] = text;
        std::memcpy(text, words[i].c_str(), (words[i].size() + 1) * sizeof(WCHAR));
        text += words[i].size() + 1;
    }
    result[words.size()] = nullptr;
    *count = static_cast<int>(words.size());
    return result;
}
