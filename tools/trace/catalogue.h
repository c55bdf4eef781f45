#pragma once
// The catalogue of trace messages, as it was when this program was built.

#include <cstddef>
#include <string_view>
#include <vector>

namespace sndxtools::trace
{
// One entry of the catalogue; the texts are for people.
struct Entry
{
    const char* code;
    const char* section;
    bool error;   // an error line
    bool failure; // an ordinary line that tells of a failure
    const char* means;
    const char* cause;
    const char* whatToDo;
};

// One text of an entry. In the pattern '\n' is a line break inside the message, '\1' to '\4' what is
// inserted: a whole number, hexadecimal digits, anything within a line, anything that may go on in further
// lines.
struct Text
{
    const char* name; // the code, with a letter when the entry has several texts
    unsigned char entry;
    const char* pattern;
};
} // namespace sndxtools::trace

#include "tools/trace/messages.h" // generated

namespace sndxtools::trace
{
inline const Entry& EntryOf(MessageId id)
{
    return entries[texts[id].entry];
}

// What stands in place of the insertions, in their order.
using Values = std::vector<std::string_view>;

// Whether the whole message (line breaks as '\n') is this one. One of 508 bytes or more may have been cut
// when it was written: it may end anywhere behind the text's first words.
bool Fits(MessageId id, std::string_view message, Values* values = nullptr);

// The message as the page of all messages shows it: "<…>" for insertions.
std::string_view Shown(MessageId id);

class Catalogue
{
  public:
    Catalogue();
    // The message whose first line this is, messageCount for none. One that can have more lines (HasMore) has
    // to be held against the whole then.
    MessageId Find(std::string_view firstLine) const;
    bool HasMore(MessageId id) const { return firsts_[id].hasMore; }

  private:
    static constexpr std::size_t slots = 1024; // a power of two, several for each text

    struct First
    {
        std::string_view line;      // the first of the pattern
        std::string_view beginning; // of that, in front of the first insertion
        bool isSimple;              // nothing else to look at: whatever follows is inserted
        bool hasMore;
    };
    First firsts_[messageCount];
    MessageId whole_[slots];                // texts without insertions, by length and ends
    std::vector<MessageId> beginning_[256]; // the others by their first four bytes, longest beginning first
    std::vector<MessageId> shortBeginning_; // of fewer than four bytes
};
} // namespace sndxtools::trace
