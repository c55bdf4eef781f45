#pragma once
// The one place that uses compiler extensions: those that GCC and Clang share, the two compilers of the
// product.

#include <cstddef>

// A string literal as a template argument.
template <std::size_t N>
struct LFixedText
{
    char sz[N];
    consteval LFixedText(const char (&text)[N]) : sz{}
    {
        for (std::size_t i = 0; i < N; ++i)
        {
            sz[i] = text[i];
        }
    }
};

// Begin and end of T's name inside the signature of this function, without a class keyword.
struct LNameRange
{
    const char* pBegin;
    std::size_t uLength;
};

template <class T>
consteval LNameRange LTypeName()
{
    // "consteval LNameRange LTypeName() [with T = X]" or "… [T = X]"
    const char* p = __PRETTY_FUNCTION__;
    const char szStart[] = "T = ";
    const char szEnd[] = "]";
    const auto find = [](const char* from, const char* what) constexpr
    {
        for (;; ++from)
        {
            std::size_t i = 0;
            while (what[i] != 0 && from[i] == what[i])
            {
                ++i;
            }
            if (what[i] == 0)
            {
                return from;
            }
        }
    };
    const char* pBegin = find(p, szStart) + sizeof(szStart) - 1;
    const char* pEnd = find(pBegin, szEnd);
    return LNameRange{pBegin, static_cast<std::size_t>(pEnd - pBegin)};
}

// The name of a member function of a class template as it stands in reports:
// LTemplateFunctionName<"LListIterator<", FolderPathItem, ">::operator ->">::value is
// "LListIterator<class FolderPathItem>::operator ->", with "class" for structures too (contract.md T27). A
// string constant with static life time.
template <LFixedText Before, class T, LFixedText After>
class LTemplateFunctionName
{
    static constexpr LNameRange s_Name = LTypeName<T>();
    static constexpr std::size_t s_uKeyword = sizeof("class ") - 1;

    struct Text
    {
        char sz[sizeof(Before.sz) - 1 + s_uKeyword + s_Name.uLength + sizeof(After.sz)];
    };

    static constexpr Text Make()
    {
        Text text{};
        char* pOut = text.sz;
        for (const char* p = Before.sz; *p != 0; ++p)
        {
            *pOut++ = *p;
        }
        for (const char* p = "class "; *p != 0; ++p)
        {
            *pOut++ = *p;
        }
        for (std::size_t i = 0; i < s_Name.uLength; ++i)
        {
            *pOut++ = s_Name.pBegin[i];
        }
        for (const char* p = After.sz; *p != 0; ++p)
        {
            *pOut++ = *p;
        }
        return text;
    }

    static constexpr Text s_Text = Make();

  public:
    static constexpr const char* value = s_Text.sz;
};
