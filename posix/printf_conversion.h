#pragma once
// Reading of one conversion of a format of the Microsoft runtime.

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace sndxposix
{
// One conversion of a format: "%[flags][width][.precision][size]letter".
struct Conversion
{
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternative = false;
    bool zero = false;
    int width = 0;
    int precision = -1; // -1: none given
    enum class Size
    {
        none,
        half,   // h: 16 bits, narrow text
        longer, // l: 32 bits, wide text
        wide,   // w: wide text
        word64, // ll, I64, j, z, t, and I before a whole number
        word32  // I32
    } size = Size::none;
};

template <class Char>
int ReadNumber(const Char*& format)
{
    int number = 0;
    for (; *format >= '0' && *format <= '9'; ++format)
    {
        number = number > (INT_MAX - 9) / 10 ? number : number * 10 + static_cast<int>(*format - '0');
    }
    return number;
}

template <class Char>
void ReadFlags(const Char*& format, Conversion& conversion)
{
    for (;; ++format)
    {
        switch (*format)
        {
        case '-':
            conversion.left = true;
            break;
        case '+':
            conversion.plus = true;
            break;
        case ' ':
            conversion.space = true;
            break;
        case '#':
            conversion.alternative = true;
            break;
        case '0':
            conversion.zero = true;
            break;
        default:
            return;
        }
    }
}

template <class Char>
void ReadSize(const Char*& format, Conversion& conversion)
{
    for (;; ++format)
    {
        switch (*format)
        {
        case 'h':
            conversion.size = Conversion::Size::half;
            break;
        case 'l':
            conversion.size = conversion.size == Conversion::Size::longer ? Conversion::Size::word64
                                                                          : Conversion::Size::longer;
            break;
        case 'w':
            conversion.size = Conversion::Size::wide;
            break;
        case 'j':
        case 'z':
        case 't':
            conversion.size = Conversion::Size::word64;
            break;
        case 'L': // long double is double
        case 'F': // far and near, of a time of segments
        case 'N':
            break;
        case 'I':
            if (format[1] == '6' && format[2] == '4')
            {
                conversion.size = Conversion::Size::word64;
                format += 2;
            }
            else if (format[1] == '3' && format[2] == '2')
            {
                conversion.size = Conversion::Size::word32;
                format += 2;
            }
            else if (format[1] != 0 && format[1] < 0x80 &&
                     std::strchr("diouxX", static_cast<char>(format[1])))
            {
                conversion.size = Conversion::Size::word64;
            }
            else
            {
                return; // no size: an unknown letter
            }
            break;
        default:
            return;
        }
    }
}

// Reads what stands between the % and the letter, and leaves format at the letter. nextArgument() takes the
// next argument, an int, for a width or precision given as *.
template <class Char, class NextArgument>
Conversion ReadConversion(const Char*& format, NextArgument nextArgument)
{
    Conversion conversion;
    ReadFlags(format, conversion);
    if (*format == '*')
    {
        ++format;
        const int width = nextArgument();
        conversion.left = conversion.left || width < 0;
        conversion.width = width == INT_MIN ? INT_MAX : std::abs(width);
    }
    else
    {
        conversion.width = ReadNumber(format);
    }
    if (*format == '.')
    {
        ++format;
        if (*format == '*')
        {
            ++format;
            conversion.precision = std::max(nextArgument(), -1);
        }
        else
        {
            conversion.precision = ReadNumber(format);
        }
    }
    ReadSize(format, conversion);
    return conversion;
}
} // namespace sndxposix
