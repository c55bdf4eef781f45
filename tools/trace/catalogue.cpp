#include "tools/trace/catalogue.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace sndxtools::trace
{
namespace
{
constexpr std::size_t shortestCut = 256; // bytes: texts are put together in rooms of 260 units and more

bool IsMark(char c)
{
    return c >= '\1' && c <= '\4';
}

std::string_view Pattern(MessageId id)
{
    return texts[id].pattern;
}

bool HasShape(char mark, std::string_view value)
{
    const auto all = [](std::string_view text, auto test)
    { return !text.empty() && std::all_of(text.begin(), text.end(), test); };
    const auto digit = [](char c) { return c >= '0' && c <= '9'; };
    switch (mark)
    {
    case '\1':
        return all(value.substr(value.starts_with('-') ? 1 : 0), digit);
    case '\2':
        return all(value,
                   [digit](char c) { return digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); });
    case '\3':
        return value.find('\n') == std::string_view::npos;
    default:
        return true;
    }
}

bool FitsPattern(std::string_view pattern, std::string_view message, Values* values)
{
    const bool cut = message.size() >= shortestCut;
    std::size_t mark = std::min(pattern.find_first_of("\1\2\3\4"), pattern.size());
    if (!message.starts_with(pattern.substr(0, mark)))
    {
        return false;
    }
    std::size_t at = mark;
    while (mark < pattern.size())
    {
        const std::size_t next = std::min(pattern.find_first_of("\1\2\3\4", mark + 1), pattern.size());
        const std::string_view literal = pattern.substr(mark + 1, next - mark - 1);
        std::size_t end = message.size();
        if (next < pattern.size())
        {
            end = message.find(literal, at);
        }
        else if (message.size() - at < literal.size() || !message.ends_with(literal))
        {
            end = std::string_view::npos;
        }
        else
        {
            end -= literal.size();
        }
        const bool isWhole = end != std::string_view::npos;
        const std::string_view value = message.substr(at, isWhole ? end - at : end);
        if ((!isWhole && !cut) || !HasShape(pattern[mark], value))
        {
            return false;
        }
        if (values != nullptr)
        {
            values->push_back(value);
        }
        if (!isWhole)
        {
            return true;
        }
        at = end + literal.size();
        mark = next;
    }
    return at == message.size();
}

// The same for equal texts, and nearly always different otherwise. Of eight bytes at least.
std::size_t Mixed(std::string_view text)
{
    std::uint64_t first;
    std::uint64_t last;
    std::memcpy(&first, text.data(), 8);
    std::memcpy(&last, text.data() + text.size() - 8, 8);
    const std::uint64_t mixed = (first * 0x9E3779B97F4A7C15 + last * 0xC2B2AE3D27D4EB4F) ^ text.size();
    return static_cast<std::size_t>((mixed * 0x9E3779B97F4A7C15) >> 40);
}

std::size_t Head(std::string_view text)
{
    std::uint32_t head = 0;
    std::memcpy(&head, text.data(), 4);
    return (head * 0x9E3779B1u) >> 24;
}
} // namespace

bool Fits(MessageId id, std::string_view message, Values* values)
{
    return FitsPattern(Pattern(id), message, values);
}

std::string_view Shown(MessageId id)
{
    static const std::vector<std::string> shown = []
    {
        std::vector<std::string> made;
        for (const Text& text : texts)
        {
            std::string& one = made.emplace_back();
            for (const char* c = text.pattern; *c != '\0'; ++c)
            {
                one += IsMark(*c) ? "<\u2026>" : std::string(1, *c);
            }
        }
        return made;
    }();
    return shown[id];
}

Catalogue::Catalogue()
{
    std::fill(std::begin(whole_), std::end(whole_), messageCount);
    for (int i = 0; i < messageCount; ++i)
    {
        const auto id = static_cast<MessageId>(i);
        const std::string_view pattern = Pattern(id);
        const std::size_t end = pattern.find_first_of("\1\2\3\4\n"); // of what every line begins with
        First& first = firsts_[i];
        first = {pattern.substr(0, pattern.find('\n')), pattern.substr(0, end),
                 end + 1 == pattern.size() && pattern[end] >= '\3',
                 pattern.find_first_of("\4\n") != std::string_view::npos};
        if (end == std::string_view::npos && pattern.size() >= 8)
        {
            std::size_t slot = Mixed(pattern) % slots;
            while (whole_[slot] != messageCount)
            {
                slot = (slot + 1) % slots;
            }
            whole_[slot] = id;
        }
        else
        {
            auto& ids = first.beginning.size() < 4 ? shortBeginning_ : beginning_[Head(first.beginning)];
            ids.push_back(id);
            std::stable_sort(ids.begin(), ids.end(),
                             [this](MessageId one, MessageId other)
                             { return firsts_[one].beginning.size() > firsts_[other].beginning.size(); });
        }
    }
}

MessageId Catalogue::Find(std::string_view firstLine) const
{
    const std::size_t size = firstLine.size();
    for (std::size_t slot = size < 8 ? slots : Mixed(firstLine) % slots;
         slot < slots && whole_[slot] != messageCount; slot = (slot + 1) % slots)
    {
        if (firsts_[whole_[slot]].line == firstLine)
        {
            return whole_[slot];
        }
    }
    const auto among = [&](const std::vector<MessageId>& ids)
    {
        for (const MessageId id : ids)
        {
            const First& first = firsts_[id];
            if (firstLine.starts_with(first.beginning) &&
                (first.isSimple || FitsPattern(first.line, firstLine, nullptr)))
            {
                return id;
            }
        }
        return messageCount;
    };
    const MessageId found = size < 4 ? messageCount : among(beginning_[Head(firstLine)]);
    return found == messageCount ? among(shortBeginning_) : found;
}
} // namespace sndxtools::trace
