#pragma once
// Fixed-buffer strings and the list of owned strings. Functions in t… work on the text type; all of them
// report misuse in the trace and carry on, a null string being taken as an empty one.

#include <cstdarg>

#include "gen/types.h"

// Characters before the terminator.
std::size_t tstrlen(const WCHAR* sz);

// Unbounded copy and append, for buffers that the caller knows to be large enough.
WCHAR* tstrcpy(WCHAR* dst, const WCHAR* src);
void tstrcat(WCHAR* dst, const WCHAR* src);

// Copies at most size - 1 characters and terminates; size 0 writes nothing. Returns the number of
// characters copied. A cut is not reported.
std::size_t tstrlcpy(WCHAR* dst, const WCHAR* src, std::size_t size);
std::size_t tstrlcpy(WCHAR* dst, const WCHAR* src);
std::size_t tstrlcpy(char* dst, const char* src, std::size_t size);

// Compares unit by unit; only A to Z are folded (contract.md O7). Negative, 0 or positive.
std::int32_t tstricmp(const WCHAR* a, const WCHAR* b);
// The same of the first count units at most.
std::int32_t tstrnicmp(const WCHAR* a, const WCHAR* b, std::size_t count);

// Decimal text: white space, one sign, digits up to the first other character; clamped to 32 bits, no
// digits give 0. The second form gives nDefault for the empty string.
std::int32_t ttoi(const WCHAR* sz);
std::int32_t LStringToIntDefault(const WCHAR* sz, std::int32_t nDefault);

// Unbounded formatting, for buffers sized for the result; returns the number of characters.
std::int32_t tsprintf(WCHAR* buf, const WCHAR* format, ...);

// Bounded formatting in the runtime's printf language into count characters, terminator included. A text
// that does not fit is cut, terminated and reported; a negative count (as 32 bits) is reported, 0 does
// nothing.
void tsnprintf(WCHAR* buf, std::size_t count, const WCHAR* format, ...);
void tsnprintf(char* buf, std::size_t count, const char* format, ...);
void lwvsnprintf(WCHAR* buf, std::size_t count, const WCHAR* format, va_list args);
void lcvsnprintf(char* buf, std::size_t count, const char* format, va_list args);

// The same for a count above 0 without a report: true when the text fitted. It is never cut inside a
// character.
bool LFormatCut(char* buf, std::size_t count, const char* format, va_list args);

// The one rule of all cuts: where a text may end that is to be cut at uAt. That is uAt, or the start of the
// character that a cut there would split, a UTF-8 sequence or a surrogate pair; sz[uAt] is looked at. Invalid
// text may be cut anywhere.
std::size_t LCutPosition(const char* sz, std::size_t uAt);
std::size_t LCutPosition(const WCHAR* sz, std::size_t uAt);

// Replaces every cWhat up to the terminator in place and returns sz. With a cWith of 0, which is reported,
// the string ends at the first of them. A cWhat of 0 is reported and leaves the string as it is: the
// terminator is not a character of the string, and a search for it would run past the end.
WCHAR* LStringReplaceChar(WCHAR* sz, WCHAR cWhat, WCHAR cWith);

// Append-only list of owned strings, kept as a null-terminated array. One thread at a time.
template <class TChar>
class LStringListTemplate
{
  public:
    // An array of 256 slots. Without memory the list starts with no array and tries again at the first Add.
    LStringListTemplate();
    ~LStringListTemplate();
    LStringListTemplate(const LStringListTemplate&) = delete;
    LStringListTemplate& operator=(const LStringListTemplate&) = delete;

    // Appends an empty string with room for uChars characters, terminator included, for the caller to fill.
    // Null, reported, when there is no memory; the list is then as it was.
    TChar* Add(std::size_t uChars);
    // Appends a copy.
    void Add(const TChar* sz);
    // The i-th string, owned by the list; null at i == GetCount(). Greater indexes are not allowed.
    TChar* Get(std::size_t i) const;
    std::size_t GetCount() const { return uCount; }

  private:
    TChar** pList;
    std::uint64_t uCount;
    std::uint64_t uCapacity; // strings the array can hold beside its terminating null pointer
};

extern template class LStringListTemplate<WCHAR>;
using LStringList = LStringListTemplate<WCHAR>;
static_assert(sizeof(LStringList) == 24); // contract.md M5
