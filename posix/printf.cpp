// Formatted output in the language of the Microsoft runtime (declared in sndx/text.h). It differs from the
// C standard's in what the product relies on: %s and %c take text of the format's own width and %S and %C
// of the other one, long is 32 bits, %I64 and %I are sizes, %p is 16 capital hexadecimal digits, exponents
// have three digits, a text that just fills the buffer has no terminator and a cut one counts as an error.
//
// Decimal fractions are rounded by the C library (2.5 with %.0f is "2"; the Microsoft runtime gives "3").
// %a is left out: nothing prints it.

#include "posix/printf_conversion.h"
#include "sndx/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace
{
using sndxposix::Conversion;
using Size = Conversion::Size;

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
            if constexpr (sizeof(Unit) == sizeof(Char))
            {
                Put(*text);
            }
            else if constexpr (sizeof(Unit) == 1)
            {
                Put(static_cast<unsigned char>(*text));
            }
            else if (*text > 0xFF)
            {
                errno = EILSEQ;
                return false;
            }
            else
            {
                Put(static_cast<Char>(*text));
            }
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

// Sign or base prefix, padding, and digits. minimum is the least number of digits.
template <class Char>
void PutNumber(Output<Char>& out, const Conversion& conversion, std::string_view prefix,
               std::string_view digits, int minimum)
{
    const auto length = static_cast<std::ptrdiff_t>(digits.size());
    const std::ptrdiff_t zeros = std::max<std::ptrdiff_t>(minimum - length, 0);
    const std::ptrdiff_t padding =
        conversion.width - static_cast<std::ptrdiff_t>(prefix.size()) - zeros - length;
    const bool padsWithZeros = conversion.zero && !conversion.left;
    if (!conversion.left && !padsWithZeros)
    {
        out.Fill(' ', padding);
    }
    out.PutText(prefix.data(), prefix.size());
    out.Fill('0', padsWithZeros ? padding + zeros : zeros);
    out.PutText(digits.data(), digits.size());
    if (conversion.left)
    {
        out.Fill(' ', padding);
    }
}

const char* SignOf(bool negative, const Conversion& conversion)
{
    return negative ? "-" : conversion.plus ? "+" : conversion.space ? " " : "";
}

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
    if (negative)
    {
        value = 0 - value;
    }
    const unsigned base = letter == 'o' ? 8 : letter == 'x' || letter == 'X' || letter == 'p' ? 16 : 10;
    const char* const symbols = letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
    char digits[24];
    std::size_t first = sizeof digits;
    for (std::uint64_t rest = value; rest != 0; rest /= base)
    {
        digits[--first] = symbols[rest % base];
    }
    const std::string_view text(digits + first, sizeof digits - first);
    int minimum = conversion.precision < 0 ? 1 : conversion.precision;
    std::string_view prefix = isSigned ? SignOf(negative, conversion) : "";
    if (conversion.alternative && base == 16 && value != 0)
    {
        prefix = letter == 'x' ? "0x" : "0X";
    }
    else if (conversion.alternative && base == 8)
    {
        minimum = std::max(minimum, static_cast<int>(text.size()) + 1);
    }
    conversion.zero = conversion.zero && conversion.precision < 0;
    PutNumber(out, conversion, prefix, text, minimum);
}

template <class Char>
void PutFloat(Output<Char>& out, const Conversion& conversion, char letter, Arguments& arguments)
{
    // Room for the largest number, 309 digits, with a precision beyond all use.
    constexpr int maximumPrecision = 1000;
    char text[maximumPrecision + 400];
    const double value = va_arg(arguments.list, double);
    const double magnitude = std::fabs(value);
    const int precision = std::min(conversion.precision < 0 ? 6 : conversion.precision, maximumPrecision);
    if (std::isfinite(value))
    {
        const char plain[] = {'%', '.', '*', letter, 0};
        const char alternative[] = {'%', '#', '.', '*', letter, 0};
        std::snprintf(text, sizeof text, conversion.alternative ? alternative : plain, precision, magnitude);
    }
    else
    {
        // "1.#INF", filled with zeros to the precision as if it were a number; %g drops such zeros.
        const char* const name = std::isinf(value) ? "#INF" : std::signbit(value) ? "#IND" : "#QNAN";
        const bool isShort = letter == 'g' || letter == 'G';
        const int length = static_cast<int>(std::strlen(name));
        const int kept = isShort ? length : std::min(length, precision);
        const int zeros = isShort ? 0 : precision - kept;
        std::snprintf(text, sizeof text, "1%s%.*s%.*d%s", kept > 0 ? "." : "", kept, name, zeros, 0,
                      letter == 'e'   ? "e+00"
                      : letter == 'E' ? "E+00"
                                      : "");
    }
    // Three digits of exponent at least.
    std::size_t length = std::strlen(text);
    if (length > 4 && (text[length - 4] | 0x20) == 'e')
    {
        text[length + 1] = 0;
        text[length] = text[length - 1];
        text[length - 1] = text[length - 2];
        text[length - 2] = '0';
        ++length;
    }
    PutNumber(out, conversion, SignOf(std::signbit(value), conversion), {text, length}, 0);
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

// Writes one conversion whose letter format points to. False when a text cannot be represented.
template <class Char>
bool Convert(Output<Char>& out, Conversion& conversion, Char letter, Arguments& arguments)
{
    switch (letter)
    {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
    case 'p':
        PutInteger(out, conversion, static_cast<char>(letter), arguments);
        return true;
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
        PutFloat(out, conversion, static_cast<char>(letter), arguments);
        return true;
    case 'c':
    case 'C':
    {
        const int unit = va_arg(arguments.list, int);
        if (IsWideText<Char>(conversion, letter == 'C'))
        {
            const auto wide = static_cast<WCHAR>(unit);
            // A character that cannot be shown is left out; only for texts that is a failure.
            if (sizeof(Char) == 1 && wide > 0xFF)
            {
                errno = EILSEQ;
                return true;
            }
            return PutPadded(out, conversion, &wide, 1);
        }
        const auto narrow = static_cast<char>(unit);
        return PutPadded(out, conversion, &narrow, 1);
    }
    case 's':
    case 'S':
        return IsWideText<Char>(conversion, letter == 'S')
                   ? PutString(out, conversion, va_arg(arguments.list, const WCHAR*))
                   : PutString(out, conversion, va_arg(arguments.list, const char*));
    case 'n':
        // Would write through a pointer: a format must not be able to. The argument is passed over.
        static_cast<void>(va_arg(arguments.list, void*));
        return true;
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
        Conversion conversion =
            sndxposix::ReadConversion(format, [&] { return va_arg(arguments.list, int); });
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

extern "C" int _snprintf(char* buffer, std::size_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = Format(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

extern "C" int _snwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int result = Format(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}
