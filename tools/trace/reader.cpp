#include "tools/trace/reader.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace sndxtools::trace
{
namespace
{
constexpr std::size_t stampSize = 20;
constexpr int msPerHour = 3600 * 1000;
constexpr int msPerMinute = 60 * 1000;

// Eight characters at a time, for stamps are looked at more than anything else.
static_assert(std::endian::native == std::endian::little);

std::uint64_t Load(const char* at)
{
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// A digit for each '0', the character itself elsewhere.
class Form
{
  public:
    constexpr explicit Form(const char (&form)[9])
    {
        for (int i = 0; i < 8; ++i)
        {
            const std::uint64_t byte = std::uint64_t{static_cast<unsigned char>(form[i])} << (8 * i);
            (form[i] == '0' ? digits_ : others_) |= std::uint64_t{0xFF} << (8 * i);
            form_ |= byte;
        }
    }
    bool Fits(std::uint64_t value) const
    {
        constexpr std::uint64_t high = 0xF0F0F0F0F0F0F0F0;
        const std::uint64_t fixed = others_ | (digits_ & high);
        return ((value ^ form_) & fixed) == 0 && (((value & digits_ & ~high) + (digits_ & six)) & high) == 0;
    }

  private:
    static constexpr std::uint64_t six = 0x0606060606060606; // carries what is above 9 into the high half
    std::uint64_t digits_ = 0;
    std::uint64_t others_ = 0;
    std::uint64_t form_ = 0;
};
constexpr Form clock("00:00:00");
constexpr Form fraction("00.000  ");
constexpr Form errorFraction("00.000**");
constexpr Form ordinary("  0000  ");
constexpr Form errors("**0000**");

// "hh:mm:ss.mmm  tttt  " or "hh:mm:ss.mmm**tttt**".
bool IsStamp(std::string_view text)
{
    if (text.size() < stampSize || text[2] != ':' || !clock.Fits(Load(text.data())))
    {
        return false;
    }
    const std::uint64_t middle = Load(text.data() + 6);
    const std::uint64_t last = Load(text.data() + 12);
    return text[0] < '3' && text[3] < '6' && text[6] < '6' &&
           ((fraction.Fits(middle) && ordinary.Fits(last)) ||
            (errorFraction.Fits(middle) && errors.Fits(last)));
}

int Number(const char* digits, int count)
{
    int number = 0;
    for (int i = 0; i < count; ++i)
    {
        number = 10 * number + (digits[i] - '0');
    }
    return number;
}
} // namespace

Reader::Reader(std::unique_ptr<Source> source, std::size_t bufferSize)
    : source_(std::move(source)), buffer_(std::max(bufferSize, leastBuffer)), at_(buffer_.data()), end_(at_)
{
}

// Has room for several lines behind at_, unless the file ends there. False when nothing is left.
bool Reader::Fill()
{
    if (static_cast<std::size_t>(end_ - at_) < leastBuffer / 2 && !atEnd_)
    {
        std::memmove(buffer_.data(), at_, static_cast<std::size_t>(end_ - at_));
        char* end = buffer_.data() + (end_ - at_);
        char* const limit = buffer_.data() + buffer_.size();
        while (end < limit && !atEnd_)
        {
            const std::size_t read = source_->Read(end, static_cast<std::size_t>(limit - end));
            atEnd_ = read == 0;
            end += read;
            bytesRead_ += read;
        }
        at_ = buffer_.data();
        end_ = end;
    }
    return at_ < end_;
}

// The line of the file that begins there, without its end; next: what follows it.
std::string_view Reader::Physical(const char* from, const char*& next) const
{
    const auto room = static_cast<std::size_t>(end_ - from);
    const auto* end = static_cast<const char*>(std::memchr(from, '\n', std::min(room, leastBuffer / 4)));
    if (end == nullptr)
    {
        next = from + std::min(room, longestLine);
        return {from, next};
    }
    next = end + 1;
    return {from, end > from && end[-1] == '\r' ? end - 1 : end};
}

bool Reader::Next(Line& line)
{
    while (isTooLong_ && Fill())
    {
        const auto* end =
            static_cast<const char*>(std::memchr(at_, '\n', static_cast<std::size_t>(end_ - at_)));
        isTooLong_ = end == nullptr;
        at_ = isTooLong_ ? end_ : end + 1;
    }
    if (!Fill())
    {
        return false;
    }
    std::string_view text = Physical(at_, at_);
    isTooLong_ = at_[-1] != '\n' && at_ < end_;
    line = Line();
    number_ += isSplit_ ? 0 : 1;
    line.number = number_;
    line.isStamped = IsStamp(text);
    if (line.isStamped) [[likely]]
    {
        SetStamp(line, text);
        text.remove_prefix(stampSize);
        line.id = catalogue_.Find(text);
    }
    line.text = text;
    isSplit_ = line.id == messageCount && Split(line);
    if (line.id != messageCount && catalogue_.HasMore(line.id))
    {
        Gather(line);
    }
    if (line.id == H01)
    {
        FindDate(line);
    }
    return true;
}

void Reader::SetStamp(Line& line, std::string_view text)
{
    // Most lines are of the same tick and thread as the one before.
    if (std::memcmp(text.data(), stamp_, stampSize) != 0)
    {
        std::memcpy(stamp_, text.data(), stampSize);
        thread_ = Number(stamp_ + 14, 4);
        const int before = milliseconds_;
        milliseconds_ = Number(stamp_, 2) * msPerHour + Number(stamp_ + 3, 2) * msPerMinute +
                        Number(stamp_ + 6, 2) * 1000 + Number(stamp_ + 9, 3);
        // Midnight. Lines of two processes may be in the wrong order by a little there too.
        const int step = before < 0 ? 0 : milliseconds_ - before;
        const bool back = before < msPerMinute && milliseconds_ > msPerDay - msPerMinute;
        day_ += step < -msPerDay / 2 ? msPerDay : step > msPerDay / 2 && back ? -msPerDay : 0;
    }
    line.time = day_ + milliseconds_;
    line.thread = thread_;
    line.error = stamp_[12] == '*';
}

// The header tells its date two lines below its first one.
void Reader::FindDate(Line& line)
{
    const std::string header(at_, std::min<std::size_t>(static_cast<std::size_t>(end_ - at_), 256));
    const std::string words(texts[H03].pattern, std::strlen(texts[H03].pattern) - 1);
    const std::size_t found = header.find(words);
    char name[4] = {};
    int day = 0, hours = 0, minutes = 0, seconds = 0, year = 0;
    // "Thu Mar  7 14:03:27 2024"
    if (found == std::string::npos ||
        std::sscanf(header.c_str() + found + words.size(), "%*3s %3s %2d %2d:%2d:%2d %4d", name, &day, &hours,
                    &minutes, &seconds, &year) != 6)
    {
        return;
    }
    const std::size_t month = std::string_view("JanFebMarAprMayJunJulAugSepOctNovDec").find(name);
    if (month % 3 != 0 || day < 1 || day > 31)
    {
        return;
    }
    hasDate_ = true;
    // The date was taken behind the line's time, perhaps behind midnight.
    const bool isNextDay = hours * msPerHour < milliseconds_ - msPerDay / 2;
    const std::chrono::sys_days midnight = std::chrono::year(year) / static_cast<int>(month / 3 + 1) / day;
    day_ = (midnight.time_since_epoch().count() - (isNextDay ? 1 : 0)) * msPerDay;
    line.time = day_ + milliseconds_;
}

// Takes in the lines below that belong to the message. It is unknown when they are not as they should be.
void Reader::Gather(Line& line)
{
    const std::string_view pattern = texts[line.id].pattern;
    const bool isOpen = pattern.ends_with('\4'); // up to an empty line, if it goes on at all
    auto wanted = std::count(pattern.begin(), pattern.end(), '\n');
    gathered_ = line.text;
    const char* at = at_;
    std::uint64_t taken = 0;
    for (bool goesOn = isOpen || wanted > 0; goesOn && at < end_;)
    {
        const char* next = nullptr;
        const std::string_view more = Physical(at, next);
        if (IsStamp(more) || gathered_.size() + more.size() > longestLine)
        {
            break;
        }
        (gathered_ += '\n') += more;
        at = next;
        ++taken;
        goesOn = isOpen ? !more.empty() : --wanted > 0;
    }
    if (Fits(line.id, gathered_))
    {
        line.text = gathered_;
        at_ = at;
        number_ += taken;
    }
    else
    {
        line.id = messageCount;
    }
}

// Two lines in one, as a torn write may leave them: what is from the second one's stamp on comes next.
bool Reader::Split(Line& line)
{
    for (std::size_t i = 1; i + stampSize <= line.text.size(); ++i)
    {
        // In brackets a line of the leak report shows another line.
        if (IsStamp(line.text.substr(i)) && line.text[i - 1] != '[')
        {
            at_ = line.text.data() + i;
            line.text = line.text.substr(0, i);
            isTooLong_ = false;
            return true;
        }
    }
    return false;
}
} // namespace sndxtools::trace
