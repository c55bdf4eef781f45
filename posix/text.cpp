// UTF-8 and UTF-16, and the folding of letters for names.

#include "posix/internal.h"
#include "sndx/text.h"

namespace sndxposix
{
namespace
{
constexpr char32_t replacement = 0xFFFD;

// Takes the next character off the front of the text; the replacement character for an ill-formed sequence,
// of which the part up to the first byte that does not continue a character is taken.
char32_t Next(std::string_view& text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    std::size_t length = 1;
    char32_t character = first;
    unsigned lowest = 0x80; // range of the second byte: no overlong forms, no surrogates, up to U+10FFFF
    unsigned highest = 0xBF;
    if (first < 0x80)
    {
        text.remove_prefix(1);
        return character;
    }
    if (first >= 0xC2 && first <= 0xDF)
    {
        length = 2;
        character = first & 0x1F;
    }
    else if (first >= 0xE0 && first <= 0xEF)
    {
        length = 3;
        character = first & 0x0F;
        lowest = first == 0xE0 ? 0xA0 : 0x80;
        highest = first == 0xED ? 0x9F : 0xBF;
    }
    else if (first >= 0xF0 && first <= 0xF4)
    {
        length = 4;
        character = first & 0x07;
        lowest = first == 0xF0 ? 0x90 : 0x80;
        highest = first == 0xF4 ? 0x8F : 0xBF;
    }
    else
    {
        text.remove_prefix(1);
        return replacement;
    }
    for (std::size_t i = 1; i < length; ++i)
    {
        const bool continues = i < text.size() && (byte(i) & 0xC0) == 0x80;
        if (!continues || byte(i) < lowest || byte(i) > highest)
        {
            // A following byte of the wrong range is taken along, as Windows does.
            text.remove_prefix(continues ? i + 1 : i);
            return replacement;
        }
        character = character << 6 | (byte(i) & 0x3Fu);
        lowest = 0x80;
        highest = 0xBF;
    }
    text.remove_prefix(length);
    return character;
}

// The same for UTF-16; the replacement character for a lone surrogate.
char32_t Next(std::u16string_view& text)
{
    const char32_t first = text[0];
    const bool isPair =
        first >= 0xD800 && first <= 0xDBFF && text.size() > 1 && text[1] >= 0xDC00 && text[1] <= 0xDFFF;
    const char32_t second = isPair ? text[1] : 0;
    text.remove_prefix(isPair ? 2 : 1);
    if (isPair)
    {
        return 0x10000 + ((first - 0xD800) << 10 | (second - 0xDC00));
    }
    return first >= 0xD800 && first <= 0xDFFF ? replacement : first;
}

// Encodes one character; the number of units.
unsigned Encode(char32_t character, char (&units)[4])
{
    const auto tail = [&](unsigned shift) { return static_cast<char>(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80)
    {
        units[0] = static_cast<char>(character);
        return 1;
    }
    if (character < 0x800)
    {
        units[0] = static_cast<char>(0xC0 | character >> 6);
        units[1] = tail(0);
        return 2;
    }
    if (character < 0x10000)
    {
        units[0] = static_cast<char>(0xE0 | character >> 12);
        units[1] = tail(6);
        units[2] = tail(0);
        return 3;
    }
    units[0] = static_cast<char>(0xF0 | character >> 18);
    units[1] = tail(12);
    units[2] = tail(6);
    units[3] = tail(0);
    return 4;
}

unsigned Encode(char32_t character, char16_t (&units)[2])
{
    if (character < 0x10000)
    {
        units[0] = static_cast<char16_t>(character);
        return 1;
    }
    units[0] = static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
    units[1] = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    return 2;
}

template <class To, std::size_t MaximumUnits, class From>
std::basic_string<To> ConvertAll(std::basic_string_view<From> text)
{
    std::basic_string<To> result;
    result.reserve(text.size());
    while (!text.empty())
    {
        To units[MaximumUnits];
        result.append(units, Encode(Next(text), units));
    }
    return result;
}

// The body of the two conversions of the system. Allocates nothing.
template <class To, std::size_t MaximumUnits, class From>
int ConvertInto(UINT codePage, const From* source, int length, To* target, int size)
{
    if ((codePage != CP_UTF8 && codePage != CP_ACP) || source == nullptr || length == 0 || length < -1 ||
        size < 0 || (target == nullptr && size != 0) ||
        static_cast<const void*>(source) == static_cast<const void*>(target))
    {
        return FailWith(ERROR_INVALID_PARAMETER, 0);
    }
    std::basic_string_view<From> text =
        length >= 0 ? std::basic_string_view<From>(source, static_cast<std::size_t>(length))
                    : std::basic_string_view<From>(source, std::char_traits<From>::length(source) + 1);
    std::int64_t written = 0;
    while (!text.empty())
    {
        To units[MaximumUnits];
        const unsigned count = Encode(Next(text), units);
        if (written + count > (size != 0 ? size : INT32_MAX))
        {
            return FailWith(ERROR_INSUFFICIENT_BUFFER, 0);
        }
        for (unsigned i = 0; size != 0 && i < count; ++i)
        {
            target[written + i] = units[i];
        }
        written += count;
    }
    return static_cast<int>(written);
}
} // namespace

std::string Utf8(std::u16string_view text)
{
    return ConvertAll<char, 4>(text);
}

std::u16string Utf16(std::string_view text)
{
    return ConvertAll<char16_t, 2>(text);
}

std::u16string FoldCase(std::u16string_view text)
{
    // Ranges of capital letters: how far the small letter is away, and whether capitals and small letters
    // alternate (capitals at the first unit and every second one from there).
    struct Range
    {
        char16_t first;
        char16_t last;
        int distance;
        bool alternating;
    };
    static constexpr Range ranges[] = {
        {u'A', u'Z', 32, false},     {0x00C0, 0x00D6, 32, false},   {0x00D8, 0x00DE, 32, false},
        {0x0100, 0x012F, 1, true},   {0x0132, 0x0137, 1, true},     {0x0139, 0x0148, 1, true},
        {0x014A, 0x0177, 1, true},   {0x0178, 0x0178, -121, false}, {0x0179, 0x017E, 1, true},
        {0x0391, 0x03A1, 32, false}, {0x03A3, 0x03AB, 32, false},   {0x0400, 0x040F, 80, false},
        {0x0410, 0x042F, 32, false}, {0x1E00, 0x1E95, 1, true},     {0x1EA0, 0x1EFF, 1, true},
    };
    std::u16string folded(text);
    for (char16_t& unit : folded)
    {
        for (const Range& range : ranges)
        {
            if (unit >= range.first && unit <= range.last &&
                (!range.alternating || (unit - range.first) % 2 == 0))
            {
                unit = static_cast<char16_t>(unit + range.distance);
                break;
            }
        }
    }
    return folded;
}
} // namespace sndxposix

extern "C" int WINAPI MultiByteToWideChar(UINT codePage, DWORD /*flags*/, LPCSTR source, int length,
                                          LPWSTR target, int size)
{
    return sndxposix::FailNextCall("MultiByteToWideChar")
               ? 0
               : sndxposix::ConvertInto<WCHAR, 2>(codePage, source, length, target, size);
}

// UTF-8 has every character: there is no use for a default.
extern "C" int WINAPI WideCharToMultiByte(UINT codePage, DWORD /*flags*/, LPCWSTR source, int length,
                                          LPSTR target, int size, LPCSTR, LPBOOL)
{
    return sndxposix::FailNextCall("WideCharToMultiByte")
               ? 0
               : sndxposix::ConvertInto<char, 4>(codePage, source, length, target, size);
}
