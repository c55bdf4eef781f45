// Formatted output in the language of the Microsoft runtime (declared in sndx/text.h), as far as it is used:
// "%[0][width][.precision][ll|I]letter" with the letters d i u x, and plain %s, %p and %%. It differs from
// the C standard's: %I is a size, %p has 16 capital hexadecimal digits, a text that just fills the buffer has
// no terminator and a cut one counts as an error.

#include <climits>
#include <cstdio>
#include <string_view>

#include "posix/base/call.h"
#include "sndx/text.h"

namespace sndxposix
{
namespace
{
// Counts everything and keeps what fits.
template <class Char>
struct Output
{
    Char* buffer;
    std::size_t size;
    std::size_t length = 0;

    template <class Unit>
    void Put(std::basic_string_view<Unit> text)
    {
        for (const Unit unit : text)
        {
            if (length < size)
            {
                buffer[length] = static_cast<Char>(unit);
            }
            ++length;
        }
    }
};

// The arguments, so that they can be passed on by reference.
struct Arguments
{
    va_list list;
};

// A number by way of the C library, whose conversion is spelled alike but for the size. False when it is
// longer than anybody asks for.
template <class Char, class Number>
bool PutNumber(Output<Char>& out, const std::string_view spelling, Number number)
{
    char spelled[24];
    char digits[512];
    std::snprintf(spelled, sizeof spelled, "%%%.*s%s%c", static_cast<int>(spelling.size() - 1),
                  spelling.data(), sizeof number == 8 ? "ll" : "", spelling.back());
    const int length = std::snprintf(digits, sizeof digits, spelled, number);
    out.Put(std::string_view(digits, length < 0 ? 0 : static_cast<std::size_t>(length)));
    return length >= 0 && length < static_cast<int>(sizeof digits);
}

// Writes the conversion behind a '%' and leaves format behind it. False for one that is not known.
template <class Char>
bool Convert(Output<Char>& out, const Char*& format, Arguments& arguments)
{
    char spelling[16]; // flag, width and precision, then the letter
    std::size_t count = 0;
    for (; (*format >= '0' && *format <= '9') || *format == '.'; ++format)
    {
        if (count == sizeof spelling - 1)
        {
            return false;
        }
        spelling[count++] = static_cast<char>(*format);
    }
    bool isLong = false;
    const bool hasSize = *format == 'I' || *format == 'l';
    for (; *format == 'I' || *format == 'l'; ++format)
    {
        isLong = *format == 'I' || format[1] == 'l' || isLong; // a single l is 32 bits
    }
    const Char letter = *format;
    format += letter == 0 ? 0 : 1; // an unfinished conversion at the end
    spelling[count++] = static_cast<char>(letter);
    switch (letter)
    {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
        return isLong ? PutNumber(out, {spelling, count}, va_arg(arguments.list, long long))
                      : PutNumber(out, {spelling, count}, va_arg(arguments.list, int));
    case 'p':
        return PutNumber(out, "016X", reinterpret_cast<long long>(va_arg(arguments.list, void*)));
    case 's':
    {
        if (count != 1 || hasSize)
        {
            return false;
        }
        const Char* const text = va_arg(arguments.list, const Char*);
        text == nullptr ? out.Put(std::string_view("(null)")) : out.Put(std::basic_string_view<Char>(text));
        return true;
    }
    case '%':
        out.Put(std::string_view("%"));
        return true;
    default:
        return false;
    }
}

template <class Char>
int Format(Char* buffer, std::size_t size, const Char* format, va_list list)
{
    Arguments arguments;
    va_copy(arguments.list, list);
    Output<Char> out{buffer, size};
    bool good = format != nullptr && (buffer != nullptr || size == 0);
    while (good && *format != 0)
    {
        const Char unit = *format++;
        if (unit == '%')
        {
            good = Convert(out, format, arguments);
        }
        else
        {
            out.Put(std::basic_string_view<Char>(&unit, 1));
        }
    }
    va_end(arguments.list);
    if (!good)
    {
        errno = EINVAL;
        return -1;
    }
    if (out.length < size)
    {
        buffer[out.length] = 0;
    }
    const bool isCut = buffer != nullptr && out.length > size;
    return isCut || out.length > INT_MAX ? -1 : static_cast<int>(out.length);
}
} // namespace

extern "C" int _vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments)
{
    return FailNextCall("_vsnprintf") ? -1 : Format(buffer, size, format, arguments);
}

extern "C" int _vsnwprintf(WCHAR* buffer, std::size_t size, const WCHAR* format, va_list arguments)
{
    return FailNextCall("_vsnwprintf") ? -1 : Format(buffer, size, format, arguments);
}
} // namespace sndxposix
