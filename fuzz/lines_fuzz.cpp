// The line reader: every byte of a file belongs to one line, whatever the line ends are and wherever the
// blocks of the reader end.

#include "fuzz/fuzz.h"
#include "win32/file.h"

using namespace sndxfuzz;

namespace
{
Lines Split(const std::string& content)
{
    Lines lines;
    for (std::size_t at = 0; at < content.size();)
    {
        const std::size_t end = std::min(content.find_first_of("\r\n", at), content.size());
        lines.push_back(content.substr(at, end - at));
        at = end + (content.compare(end, 2, "\r\n") == 0 ? 2 : 1);
    }
    return lines;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto room = input.ConsumeIntegralInRange<std::size_t>(1, 40);
    // What the reader reads at once ends anywhere in the rest.
    const std::size_t filler =
        input.ConsumeBool() ? input.ConsumeIntegralInRange<std::size_t>(8100, 8200) : 0;
    const std::string content = std::string(filler, '-') + input.ConsumeRemainingBytesAsString();
    const WCHAR path[] = TEXT("C:\\lines.txt");
    WriteFileOf(path, content);
    LBufferedReadFileRef file(path, 0);
    MUST(file.IsOpen());
    auto line = Buffer<char>(room);
    for (const std::string& wanted : Split(content))
    {
        const std::string kept = wanted.substr(0, room - 1);
        // The end of the file also ends a line, but an empty one there is none; without room nothing is told
        // of it.
        MUST(file.ReadLine(line.data(), room) || (kept.empty() && !wanted.empty()));
        MUST(std::equal(kept.begin(), kept.end(), line.begin()) && line[kept.size()] == 0);
    }
    MUST(!file.ReadLine(line.data(), room) && line[0] == 0);
    return 0;
}
