// UTF-8 and UTF-16, and the folding of letters for names.

#include "posix/text/charsets.h"

#include <clocale>
#include <cwctype>

#include "posix/base/call.h"
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
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length < 2)
    {
        text.remove_prefix(1);
        return length == 1 ? first : replacement;
    }
    // Range of the second byte: no overlong forms, no surrogates, up to U+10FFFF.
    const unsigned lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    char32_t character = first & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i)
    {
        const bool continues = i < text.size() && (byte(i) & 0xC0) == 0x80;
        if (!continues || (i == 1 && (byte(1) < lowest || byte(1) > highest)))
        {
            // A following byte of the wrong range is taken along, as Windows does.
            text.remove_prefix(continues ? i + 1 : i);
            return replacement;
        }
        character = character << 6 | (byte(i) & 0x3Fu);
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
    const unsigned length = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
    for (unsigned i = length; i-- > 1; character >>= 6)
    {
        units[i] = static_cast<char>(0x80 | (character & 0x3F));
    }
    // As many leading ones as there are units, when there are several.
    units[0] = static_cast<char>(character | (length == 1 ? 0 : 0xF00u >> length));
    return length;
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
    // Whatever locale the host has. Where there is none of this name only ASCII letters are folded.
    static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    static const locale_t locale = unicode != nullptr ? unicode : newlocale(LC_CTYPE_MASK, "C", nullptr);
    std::u16string folded(text);
    for (char16_t& unit : folded)
    {
        // Letters that are each other's counterpart: names that differ in others are different to Windows.
        const wint_t small = towlower_l(unit, locale);
        if (small <= 0xFFFF && towupper_l(small, locale) == unit)
        {
            unit = static_cast<char16_t>(small);
        }
    }
    return folded;
}

extern "C" int WINAPI MultiByteToWideChar(UINT codePage, DWORD /*flags*/, LPCSTR source, int length,
                                          LPWSTR target, int size)
{
    return FailNextCall("MultiByteToWideChar", {{target, static_cast<std::size_t>(size) * sizeof(WCHAR)}})
               ? 0
               : ConvertInto<WCHAR, 2>(codePage, source, length, target, size);
}

// UTF-8 has every character: there is no use for a default.
extern "C" int WINAPI WideCharToMultiByte(UINT codePage, DWORD /*flags*/, LPCWSTR source, int length,
                                          LPSTR target, int size, LPCSTR, LPBOOL)
{
    return FailNextCall("WideCharToMultiByte", {{target, static_cast<std::size_t>(size)}})
               ? 0
               : ConvertInto<char, 4>(codePage, source, length, target, size);
}
} // namespace sndxposix
