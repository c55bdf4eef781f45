// Conversion between UTF-16 and UTF-8 in fixed buffers.

#include <algorithm>
#include <limits>

#include "gen/charsets.h"
#include "gen/types.h"
#include "tests/support/reports.h"

namespace
{
using namespace sndxtest;

// What a buffer of this size holds then; the unit behind it must stay '#', and nothing is reported.
template <class TTo, class TFrom>
std::basic_string<TTo> Converted(void (*copy)(TTo*, const TFrom*, std::size_t), const TFrom* text,
                                 std::size_t size)
{
    std::basic_string<TTo> buffer(size + 1, TTo{'#'});
    EXPECT_EQ(Traced([&] { copy(buffer.data(), text, size); }), Lines());
    EXPECT_EQ(buffer[size], TTo{'#'}) << "written behind the buffer";
    EXPECT_EQ(buffer[size - 1], TTo{0}) << "the last unit is a terminator, whatever fits";
    return buffer.c_str();
}

std::string ToUtf8(const WideString& text, std::size_t size)
{
    return Converted(&LCopyUTF8FromUnicode, text.c_str(), size);
}

WideString ToWide(const std::string& text, std::size_t size)
{
    return Converted(&LCopyUnicodeFromUTF8, text.c_str(), size);
}

TEST(Charsets, TextsThatDoNotFitAreCutAtACharacter)
{
    // Characters of 1 to 4 bytes, the last of these of two units: every size, up to one to spare.
    const std::string text = "a\u00F6\u20AC\U0001F600z";
    const std::size_t bytes[] = {0, 1, 3, 6, 10, 11};
    const std::size_t units[] = {0, 1, 2, 3, 5, 6};
    for (std::size_t size = 1; size <= text.size() + 2; ++size)
    {
        const auto whole = [size](const std::size_t(&ends)[6])
        { return std::upper_bound(ends, ends + 6, size - 1) - ends - 1; };
        EXPECT_EQ(ToUtf8(Wide(text), size), text.substr(0, bytes[whole(bytes)])) << size;
        EXPECT_EQ(ToWide(text, size), Wide(text.substr(0, bytes[whole(units)]))) << size;
    }
    const std::string path(300, 'x');
    EXPECT_EQ(ToUtf8(Wide(path), LSTR), path.substr(0, 259));
    EXPECT_EQ(ToWide(path, LSTR), Wide(path.substr(0, 259)));
    // Invalid input becomes the replacement character, also what is cut off.
    const WideString surrogates = {WCHAR{'a'}, static_cast<WCHAR>(0xD83D), WCHAR{'b'},
                                   static_cast<WCHAR>(0xDE00)};
    const std::string replaced = "a\uFFFD" + std::string("b\uFFFD");
    EXPECT_EQ(ToUtf8(surrogates, 100), replaced);
    EXPECT_EQ(ToUtf8(surrogates, 5), replaced.substr(0, 4));
    EXPECT_EQ(ToUtf8(surrogates, 4), "a");
    const std::pair<const char*, const char*> invalid[] = {
        {"\xFF", "\uFFFD"},               // no first byte
        {"\x80", "\uFFFD"},               // a following byte alone
        {"\xE2\x82", "\uFFFD"},           // cut
        {"\xC0\xAF", "\uFFFD\uFFFD"},     // longer than need be
        {"\xED\xA0\x80", "\uFFFD\uFFFD"}, // a surrogate
    };
    for (const auto& [wrong, shown] : invalid)
    {
        EXPECT_EQ(ToWide("a" + std::string(wrong) + "z" + wrong, 100),
                  Wide("a" + std::string(shown) + "z" + shown));
    }
}

TEST(Charsets, ASizeThatIsNotPositiveAndANullSourceAreReported)
{
    char narrow = '#';
    WCHAR wide = TEXT('#');
    for (const std::size_t size :
         {std::size_t{0}, std::numeric_limits<std::size_t>::max(), std::size_t{1} << 31})
    {
        EXPECT_EQ(Traced([&] { LCopyUTF8FromUnicode(&narrow, TEXT("a"), size); }),
                  Lines{"**LCopyUTF8FromUnicode called with BufferSize <= 0"});
        EXPECT_EQ(Traced([&] { LCopyUnicodeFromUTF8(&wide, "a", size); }),
                  Lines{"**LCopyUnicodeFromUTF8 called with BufferSizeChars <= 0"});
    }
    EXPECT_TRUE(narrow == '#' && wide == TEXT('#')) << "nothing is written";
    EXPECT_EQ(Traced([&] { LCopyUTF8FromUnicode(&narrow, nullptr, 1); }), Lines{nullRead});
    EXPECT_EQ(Traced([&] { LCopyUnicodeFromUTF8(&wide, nullptr, 1); }), Lines{nullRead});
    EXPECT_TRUE(narrow == 0 && wide == 0) << "taken as empty";
}

TEST(Charsets, ConversionInPlaceIsReportedAndCarriesOn)
{
    WCHAR buffer[32] = {};
    auto* const narrow = reinterpret_cast<char*>(buffer);
    EXPECT_EQ(Traced([=] { LCopyUTF8FromUnicode(narrow, reinterpret_cast<WCHAR*>(narrow), 32); }),
              Lines{Assertion("LCopyUTF8FromUnicode", "(void*)(szUTF8) != (void*)(szUnicode)",
                              "gen/charsets.cpp")});
    EXPECT_EQ(Traced([=] { LCopyUnicodeFromUTF8(reinterpret_cast<WCHAR*>(narrow), narrow, 32); }),
              Lines{Assertion("LCopyUnicodeFromUTF8", "(void*)(szUnicode) != (void*)(szUTF8)",
                              "gen/charsets.cpp")});
}
} // namespace
