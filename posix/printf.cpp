// Formatted output in the language of the Microsoft runtime (declared in sndx/text.h), as far as the product
// uses it: "%[-0][width][.precision][size]letter" with the letters d i u x X p c C s S. It differs from the C
// standard's: %s and %c take text of the format's own width and %S and %C of the other one, long is 32 bits,
// %I64 and %I are sizes, %p is 16 capital hexadecimal digits, a text that just fills the buffer has no
// terminator and a cut one counts as an error.

#include "sndx/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace
{
struct Conversion
{
    bool left = false;
    bool zero = false;
    int width = 0;
    int precision = -1; // -1: none given
    enum class Size
    {
        none,
        half,   // h: 16 bits, narrow text
        longer, // l: 32 bits, wide text
        wide,   // w: wide text
        word64, // ll, I64, z, and I before a whole number
        word32  // I32
    } size = Size::none;
};
using Size = Conversion::Size;

// Sizes by their spelling; longer spellings first.
constexpr std::pair<std::string_view, Size> sizes[] = {
    {"I64", Size::word64}, {"I32", Size::word32}, {"ll", Size::word64}, {"I", Size::word64},
    {"z", Size::word64},   {"l", Size::longer},   {"h", Size::half},    {"w", Size::wide},
};

template <class Char>
bool Takes(const Char*& format, std::string_view expected)
{
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        if (format[i] != static_cast<Char>(expected[i])) // also at the format's end
        {
            return false;
        }
    }
    format += expected.size();
    return true;
}

// A number, or * for the next argument; 0 for neither.
template <class Char, class NextArgument>
int ReadNumber(const Char*& format, NextArgument nextArgument)
{
    if (Takes(format, "*"))
    {
        return nextArgument();
    }
    int number = 0;
    for (; *format >= '0' && *format <= '9'; ++format)
    {
        number = number > (INT_MAX - 9) / 10 ? number : number * 10 + static_cast<int>(*format - '0');
    }
    return number;
}

// Reads what stands between the % and the letter, and leaves format at the letter. nextArgument() takes the
// next argument, an int.
template <class Char, class NextArgument>
Conversion ReadConversion(const Char*& format, NextArgument nextArgument)
{
    Conversion conversion;
    for (; *format == '-' || *format == '0'; ++format)
    {
        (*format == '-' ? conversion.left : conversion.zero) = true;
    }
    const int width = std::max(ReadNumber(format, nextArgument), -INT_MAX);
    conversion.left = conversion.left || width < 0;
    conversion.width = std::abs(width);
    if (Takes(format, "."))
    {
        conversion.precision = std::max(ReadNumber(format, nextArgument), -1);
    }
    for (const auto& [spelling, size] : sizes)
    {
        if (Takes(format, spelling))
        {
            conversion.size = size;
            break;
        }
    }
    return conversion;
}

// Counts everything and keeps what fits.
template <class Char>
struct Output
{
    Char* buffer;
    std::size_t size;
    std::size_t length = 0;

    void Put(Char unit)
    {
        if (length < size)
        {
            buffer[length] = unit;
        }
        ++length;
    }
    void Fill(Char unit, std::ptrdiff_t count)
    {
        for (; count > 0; --count)
        {
            Put(unit);
        }
    }
    // Text of either width; false for a character that the narrow character set does not have. That is
    // the runtime's "C" locale: the first 256 characters.
    template <class Unit>
    bool PutText(const Unit* text, std::size_t count)
    {
        for (; count > 0; --count, ++text)
        {
            const char16_t unit = sizeof(Unit) == 1 ? static_cast<unsigned char>(*text) : *text;
            if (sizeof(Char) == 1 && unit > 0xFF)
            {
                errno = EILSEQ;
                return false;
            }
            Put(static_cast<Char>(unit));
        }
        return true;
    }
};

// The arguments, so that they can be passed on by reference.
struct Arguments
{
    va_list list;
};

// Blanks or zeros before or behind a text. Zeros stand before text, too: the runtime makes no difference.
template <class Char, class Unit>
bool PutPadded(Output<Char>& out, const Conversion& conversion, const Unit* text, std::size_t length)
{
    const std::ptrdiff_t padding = conversion.width - static_cast<std::ptrdiff_t>(length);
    if (!conversion.left)
    {
        out.Fill(conversion.zero ? '0' : ' ', padding);
    }
    const bool fits = out.PutText(text, length);
    if (conversion.left)
    {
        out.Fill(' ', padding);
    }
    return fits;
}

// A precision is the least number of digits, and ends the padding with zeros.
template <class Char>
void PutInteger(Output<Char>& out, Conversion conversion, char letter, Arguments& arguments)
{
    const bool isSigned = letter == 'd' || letter == 'i';
    std::uint64_t value;
    if (letter == 'p')
    {
        value = reinterpret_cast<std::uintptr_t>(va_arg(arguments.list, void*));
        conversion.precision = 16;
    }
    else if (conversion.size == Size::word64)
    {
        value = va_arg(arguments.list, std::uint64_t);
    }
    else
    {
        const int word = va_arg(arguments.list, int);
        value = isSigned ? static_cast<std::uint64_t>(conversion.size == Size::half ? static_cast<short>(word)
                                                                                    : word)
                : conversion.size == Size::half ? static_cast<std::uint16_t>(word)
                                                : static_cast<std::uint32_t>(word);
    }
    const bool negative = isSigned && static_cast<std::int64_t>(value) < 0;
    value = negative ? 0 - value : value;
    const unsigned base = letter == 'x' || letter == 'X' || letter == 'p' ? 16 : 10;
    const char* const symbols = letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
    char digits[24];
    std::size_t first = sizeof digits;
    for (; value != 0; value /= base)
    {
        digits[--first] = symbols[value % base];
    }
    const auto length = static_cast<std::ptrdiff_t>(sizeof digits - first);
    const std::ptrdiff_t room = conversion.width - (negative ? 1 : 0); // for zeros and digits
    std::ptrdiff_t minimum = conversion.precision < 0 ? 1 : conversion.precision;
    if (conversion.zero && !conversion.left && conversion.precision < 0)
    {
        minimum = std::max(minimum, room);
    }
    const std::ptrdiff_t padding = room - std::max(minimum, length);
    out.Fill(' ', conversion.left ? 0 : padding);
    out.Fill('-', negative ? 1 : 0);
    out.Fill('0', minimum - length);
    out.PutText(digits + first, sizeof digits - first);
    out.Fill(' ', conversion.left ? padding : 0);
}

template <class Char, class Unit>
bool PutString(Output<Char>& out, const Conversion& conversion, const Unit* text)
{
    static constexpr Unit null[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    text = text == nullptr ? null : text;
    // Not beyond the precision: a text that is cut by it need not have a terminator.
    std::size_t length = 0;
    while ((conversion.precision < 0 || length < static_cast<std::size_t>(conversion.precision)) &&
           text[length] != 0)
    {
        ++length;
    }
    return PutPadded(out, conversion, text, length);
}

template <class Char>
bool IsWideText(const Conversion& conversion, bool otherWidth)
{
    if (conversion.size == Size::half)
    {
        return false;
    }
    if (conversion.size == Size::longer || conversion.size == Size::wide)
    {
        return true;
    }
    return (sizeof(Char) == sizeof(WCHAR)) != otherWidth;
}

// Writes one conversion. False when a text cannot be represented.
template <class Char>
bool Convert(Output<Char>& out, const Conversion& conversion, Char letter, Arguments& arguments)
{
    switch (letter)
    {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'p':
        PutInteger(out, conversion, static_cast<char>(letter), arguments);
        return true;
    case 'c':
    case 'C':
    {
        const int unit = va_arg(arguments.list, int);
        const auto wide = static_cast<WCHAR>(unit);
        const auto narrow = static_cast<char>(unit);
        // A single character that cannot be shown is left out; only for texts that is a failure.
        IsWideText<Char>(conversion, letter == 'C') ? PutPadded(out, conversion, &wide, 1)
                                                    : PutPadded(out, conversion, &narrow, 1);
        return true;
    }
    case 's':
    case 'S':
        return IsWideText<Char>(conversion, letter == 'S')
                   ? PutString(out, conversion, va_arg(arguments.list, const WCHAR*))
                   : PutString(out, conversion, va_arg(arguments.list, const char*));
    default:
        out.Put(letter); // "%%", and letters that mean nothing
        return true;
    }
}

template <class Char>
int Format(Char* buffer, std::size_t size, const Char* format, va_list list)
{
    if (format == nullptr || (buffer == nullptr && size != 0))
    {
        errno = EINVAL;
        return -1;
    }
    Arguments arguments;
    va_copy(arguments.list, list);
    Output<Char> out{buffer, size};
    bool good = true;
    while (good && *format != 0)
    {
        if (*format != '%')
        {
            out.Put(*format++);
            continue;
        }
        ++format;
        const Conversion conversion = ReadConversion(format, [&] { return va_arg(arguments.list, int); });
        if (*format == 0)
        {
            break; // an unfinished conversion at the end prints nothing
        }
        good = Convert(out, conversion, *format++, arguments);
    }
    va_end(arguments.list);
    if (out.length < size)
    {
        buffer[out.length] = 0;
    }
    const bool cut = buffer != nullptr && out.length > size;
    return good && !cut && out.length <= INT_MAX ? static_cast<int>(out.length) : -1;
}
} // namespace

extern "C" int _vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
{
    return Format(buffer, size, format, arguments);
}

extern "C" int _vsnwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, va_list arguments)
{
    return Format(buffer, size, format, arguments);
}
