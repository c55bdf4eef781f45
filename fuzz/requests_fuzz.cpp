// The reader of requests: the same answer however the stream is cut, nothing false told of a sound request,
// and every fault of an unsound one counted.

#include <cstring>

#include "fuzz/fuzz.h"
#include "tools/mainprogram/requestreader.h"

using namespace sndxfuzz;
namespace wire = sndxtools::wire;

namespace
{
struct Reading
{
    std::string text;
    unsigned messages, faults;
    bool operator==(const Reading&) const = default;
};

// Reads the stream in pieces of the lengths that `next` gives.
template <class Next>
Reading Read(const std::string& stream, Next next)
{
    sndxtools::RequestReader reader;
    Reading result = {};
    for (std::size_t at = 0; at < stream.size();)
    {
        const std::vector<unsigned char> piece(
            stream.begin() + static_cast<std::ptrdiff_t>(at),
            stream.begin() + static_cast<std::ptrdiff_t>(std::min(at + next(), stream.size())));
        result.text += reader.Feed(piece.data(), piece.size());
        at += piece.size();
    }
    MUST(reader.Bytes() == stream.size());
    result.text += reader.End();
    result.messages = reader.Messages();
    result.faults = reader.Faults();
    return result;
}

std::size_t Count(const std::string& text, const std::string& what)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    {
        ++count;
    }
    return count;
}

// A sound request, with what must be told of it.
std::string Sound(FuzzedDataProvider& input, std::string& told)
{
    wire::Payload payload = {};
    payload.slotCount = input.ConsumeIntegralInRange<std::uint32_t>(wire::minSlots, wire::maxSlots);
    const std::string word = wire::optionWords[input.ConsumeIntegralInRange<std::size_t>(0, 2)];
    std::copy(word.begin(), word.end(), payload.slots[0]);
    told += "  option " + sndxtools::Quoted(word) + "\n";
    for (std::uint32_t i = 1; i < payload.slotCount; ++i)
    {
        const WideString path = ConsumeWide(input, wire::slotUnits - 1);
        path.copy(payload.slots[i], path.size());
        told += "  path " + std::to_string(i) + " " + sndxtools::Quoted(sndxtools::Utf8(path)) + "\n";
    }
    const auto bytes = static_cast<std::uint32_t>(wire::PayloadSize(payload.slotCount));
    const wire::Header header = {wire::marker, wire::format, wire::code, bytes, 0};
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
           std::string(reinterpret_cast<const char*>(&payload), bytes);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    std::string stream, told;
    const bool sound = input.ConsumeBool();
    const auto requests = input.ConsumeIntegralInRange<unsigned>(0, 2);
    for (unsigned i = 0; i < requests; ++i)
    {
        stream += Sound(input, told);
    }
    const auto step = input.ConsumeIntegralInRange<std::size_t>(1, 700);
    if (!sound)
    {
        // Damage anywhere, then anything.
        for (auto damages = input.ConsumeIntegralInRange<unsigned>(0, 8); damages > 0 && !stream.empty();
             --damages)
        {
            stream[input.ConsumeIntegralInRange<std::size_t>(
                0, std::min<std::size_t>(stream.size() - 1, 2000))] = input.ConsumeIntegral<char>();
        }
        stream += input.ConsumeRemainingBytesAsString();
    }
    const Reading whole = Read(stream, [&] { return stream.size(); });
    MUST(whole == Read(stream, [&] { return std::max(step, stream.size() / 200); }));
    MUST(whole.faults == Count(whole.text, "\n  malformed: "));
    MUST(whole.text.empty() || whole.text.back() == '\n');
    if (sound)
    {
        MUST(whole.messages == requests && whole.faults == 0);
        std::string lines; // without those of headers and counts
        for (std::size_t at = 0; at < whole.text.size();)
        {
            const std::string line = whole.text.substr(at, whole.text.find('\n', at) + 1 - at);
            lines += line.starts_with("  option") || line.starts_with("  path") ? line : "";
            at += line.size();
        }
        MUST(lines == told);
    }
    return 0;
}
