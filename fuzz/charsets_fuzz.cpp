// Character sets: what fits comes back as it was, what is invalid is replaced, what does not fit is cut in
// front of a character and nowhere earlier.

#include "fuzz/fuzz.h"
#include "gen/charsets.h"

using namespace sndxfuzz;

namespace
{
template <class To, class From, class Copy>
std::basic_string<To> Converted(Copy copy, const std::basic_string<From>& text, std::size_t size)
{
    auto buffer = Buffer<To>(size);
    copy(buffer.data(), Exact(text).data(), size);
    MUST(buffer.back() == 0);
    return buffer.data();
}

std::string ToUtf8(const std::u16string& text, std::size_t size)
{
    return Converted<char>(LCopyUTF8FromUnicode, text, size);
}

std::u16string ToWide(const std::string& text, std::size_t size)
{
    return Converted<char16_t>(LCopyUnicodeFromUTF8, text, size);
}

std::u16string WithoutLoneSurrogates(std::u16string text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const bool pair =
            (text[i] & 0xFC00) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
        i += pair ? 1 : 0;
        text[i] = !pair && (text[i] & 0xF800) == 0xD800 ? char16_t{0xFFFD} : text[i];
    }
    return text;
}

// Units of the character that begins the text.
std::size_t Character(const std::string& text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    return first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

std::size_t Character(const std::u16string& text)
{
    return (text[0] & 0xFC00) == 0xD800 ? 2 : 1;
}

// The cut text is the whole one's beginning, and the next character did not fit.
template <class Unit>
void MustBeCut(const std::basic_string<Unit>& whole, const std::basic_string<Unit>& cut, std::size_t size)
{
    MUST(whole.starts_with(cut));
    MUST(cut.size() < size);
    MUST(cut == whole || cut.size() + Character(whole.substr(cut.size())) >= size);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto room = input.ConsumeIntegralInRange<std::size_t>(1, 70);
    const std::u16string wide = ConsumeWide(input, 60);
    std::string bytes = input.ConsumeRemainingBytesAsString().substr(0, 200);
    std::replace(bytes.begin(), bytes.end(), '\0', '0');
    constexpr std::size_t large = 1000;

    const std::string utf8 = ToUtf8(wide, large);
    MUST(ToWide(utf8, large) == WithoutLoneSurrogates(wide));
    MUST(ToUtf8(wide, utf8.size() + 1) == utf8);
    MustBeCut(utf8, ToUtf8(wide, room), room);

    // Any bytes: what came out is valid, so it goes back and forth unchanged.
    const std::u16string read = ToWide(bytes, large);
    MUST(WithoutLoneSurrogates(read) == read);
    MUST(ToWide(ToUtf8(read, large), large) == read);
    MUST(ToWide(bytes, read.size() + 1) == read);
    const std::u16string cut = ToWide(bytes, room);
    // A broken sequence at the cut may count for one more replacement or one less.
    if (bytes == ToUtf8(read, large))
    {
        MustBeCut(read, cut, room);
    }
    MUST(cut.size() < room && read.compare(0, cut.size(), cut) == 0);
    return 0;
}
