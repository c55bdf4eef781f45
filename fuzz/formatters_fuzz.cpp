// The bounded formatters beside the C library's: the same text where it fits; otherwise its beginning, cut
// between characters and reported.

#include <cinttypes>

#include "fuzz/fuzz.h"
#include "gen/charsets.h"
#include "gen/stringtools.h"

using namespace sndxfuzz;

namespace
{
// Every formatted text of the cases is shorter.
constexpr std::size_t most = 4000;

// A text without '%' around one conversion.
struct Case
{
    std::string before, conversion, after;
    template <class Unit>
    std::basic_string<Unit> Format(const std::string& spelling) const
    {
        const std::string format = before + "%" + spelling + after;
        return std::basic_string<Unit>(format.begin(), format.end());
    }
};

template <class Unit>
void MustBe(const std::vector<Unit>& buffer, const std::basic_string<Unit>& whole, const char* formatter)
{
    const Lines lines = TakeLines();
    const std::basic_string<Unit> text = buffer.data();
    if (whole.size() < buffer.size())
    {
        MUST(text == whole && lines.empty());
        return;
    }
    MUST(text == whole.substr(0, CutAt(whole, buffer.size() - 1)));
    MUST(lines.size() == 2 && lines[0].starts_with("**" + std::string(formatter) + " - string overflowed"));
    MUST(lines[1].starts_with("**String: "));
}

template <class Argument>
void TestOne(const Case& one, const std::string& spelling, const std::string& reference, Argument argument,
             std::size_t size)
{
    char whole[most];
#pragma clang diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(whole, most, ("%s%" + reference + "%s").c_str(), one.before.c_str(),
                                     argument, one.after.c_str());
    MUST(length >= 0 && static_cast<std::size_t>(length) < most);
    const std::string expected = whole;
    TakeLines();
    auto narrow = Buffer<char>(size);
    tsnprintf(narrow.data(), size, one.Format<char>(spelling).c_str(), argument);
    MustBe(narrow, expected, "lcvsnprintf");
    auto wide = Buffer<WCHAR>(size);
    tsnprintf(wide.data(), size, one.Format<WCHAR>(spelling).c_str(), argument);
    MustBe(wide, WideString(expected.begin(), expected.end()), "lwvsnprintf");
    auto unbounded = Buffer<WCHAR>(expected.size() + 1);
    MUST(tsprintf(unbounded.data(), one.Format<WCHAR>(spelling).c_str(), argument) == length);
    MustBe(unbounded, WideString(expected.begin(), expected.end()), "none");
}

// Texts go through as they are, whatever they hold.
void TestTexts(const WideString& text, std::size_t size)
{
    TakeLines();
    auto wide = Buffer<WCHAR>(size);
    tsnprintf(wide.data(), size, TEXT("%s|%s"), Exact(text).data(), Exact(text).data());
    MustBe(wide, text + TEXT("|") + text, "lwvsnprintf");
    char bytes[most];
    LCopyUTF8FromUnicode(bytes, text.c_str(), most);
    auto narrow = Buffer<char>(size);
    tsnprintf(narrow.data(), size, "%s|%s", bytes, bytes);
    MustBe(narrow, std::string(bytes) + "|" + bytes, "lcvsnprintf");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto room = input.ConsumeIntegralInRange<std::size_t>(1, 300);
    Case one;
    for (std::string* text : {&one.before, &one.after})
    {
        *text = input.ConsumeRandomLengthString(100);
        std::replace_if(
            text->begin(), text->end(), [](char c) { return c <= 0 || c == '%'; }, '-');
    }
    std::string width = input.ConsumeBool() ? "0" : "";
    width += input.ConsumeBool() ? std::to_string(input.ConsumeIntegralInRange(1, 200)) : "";
    width += input.ConsumeBool() ? "." + std::to_string(input.ConsumeIntegralInRange(0, 200)) : "";
    const std::string letter(1, input.PickValueInArray({'d', 'i', 'u', 'x'}));
    const auto number = input.ConsumeIntegral<std::int64_t>();
    TestOne(one, width + letter, width + letter, static_cast<int>(number), room);
    TestOne(one, width + "ll" + letter, width + "ll" + letter, static_cast<long long>(number), room);
    TestOne(one, width + "I" + letter, width + "ll" + letter, static_cast<long long>(number), room);
    TestTexts(ConsumeWide(input, 300), room);
    return 0;
}
