#pragma once
// Reads a trace file of any size and condition line by line, in constant memory.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/trace/catalogue.h"

namespace sndxtools::trace
{
// Where the bytes come from.
class Source
{
  public:
    virtual ~Source() = default;
    // At most size bytes; 0 at the end. Throws std::runtime_error when they cannot be read.
    virtual std::size_t Read(char* buffer, std::size_t size) = 0;
};

// Bytes in memory; they must stay there.
class MemorySource : public Source
{
  public:
    explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
    std::size_t Read(char* buffer, std::size_t size) override
    {
        const std::size_t taken = bytes_.copy(buffer, size);
        bytes_.remove_prefix(taken);
        return taken;
    }

  private:
    std::string_view bytes_;
};

// A line with a stamp and what belongs to it in the lines below, or a line of the file that belongs to
// nothing.
struct Line
{
    std::string_view text;    // without the stamp, further lines behind '\n'; valid until the reader's next
                              // line. What is longer than any line of a trace is cut.
    std::uint64_t number = 0; // in the file, from 1
    std::int64_t time = 0;    // ms since 1970 in local time; since midnight while the file has told no date
    int thread = 0;           // its last four digits
    bool isStamped = false;
    bool error = false;
    MessageId id = messageCount; // messageCount: not in the catalogue
};

constexpr std::int64_t msPerDay = 24 * 3600 * 1000;

class Reader
{
  public:
    static constexpr std::size_t longestLine = 8191; // bytes, with its end, as the trace is written
    static constexpr std::size_t leastBuffer = 8 * longestLine;

    // bufferSize: bytes held at a time, at least leastBuffer.
    explicit Reader(std::unique_ptr<Source> source, std::size_t bufferSize = std::size_t{1} << 18);

    // False at the end.
    bool Next(Line& line);
    std::uint64_t BytesRead() const { return bytesRead_; }
    // Whether a header has told the date of the lines behind it.
    bool HasDate() const { return hasDate_; }

  private:
    bool Fill();
    std::string_view Physical(const char* from, const char*& next) const;
    void SetStamp(Line& line, std::string_view text);
    void FindDate(Line& line);
    void Gather(Line& line);
    bool Split(Line& line);

    std::unique_ptr<Source> source_;
    std::vector<char> buffer_;
    const char* at_; // what is not read yet
    const char* end_;
    bool atEnd_ = false;     // of the source
    bool isTooLong_ = false; // at_ is inside a line longer than any that a trace has
    bool isSplit_ = false;   // at_ is inside a line of the file that held two of the trace
    bool hasDate_ = false;
    char stamp_[20] = {}; // of the last stamped line
    int thread_ = 0;
    int milliseconds_ = -1;
    std::int64_t day_ = 0; // ms, its midnight
    std::uint64_t number_ = 0;
    std::uint64_t bytesRead_ = 0;
    std::string gathered_;
    Catalogue catalogue_;
};
} // namespace sndxtools::trace
