// The state of a pipe that its ends share (see pipeend.h).

#include "posix/pipes/pipeend.h"

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

#include "posix/files/paths.h"
#include "posix/text/charsets.h"

namespace sndxposix
{
namespace
{
constexpr off_t slotsOffset = 4096;
constexpr off_t slotStride = 128;
static_assert(sizeof(PipeSlot) <= slotStride);

off_t SlotOffset(std::size_t index)
{
    return slotsOffset + static_cast<off_t>(index) * slotStride;
}
} // namespace

PipeHeader PipeControl::ReadHeader() const
{
    PipeHeader header{};
    ReadAt(File(), &header, sizeof header, objectDataOffset);
    return header;
}

PipeSlot PipeControl::ReadSlot(std::size_t index) const
{
    PipeSlot slot{};
    ReadAt(File(), &slot, sizeof slot, SlotOffset(index));
    return slot;
}

void PipeControl::WriteSlot(std::size_t index, const PipeSlot& slot) const
{
    // The slot's bytes exist since it was taken, so that no space can be missing.
    WriteAt(File(), &slot, sizeof slot, SlotOffset(index));
}

std::size_t PipeControl::CountServers() const
{
    const std::size_t slots = ReadHeader().slotCount;
    std::size_t count = 0;
    for (std::size_t index = 0; index < slots; ++index)
    {
        count += IsServerAlive(index) ? 1 : 0;
    }
    return count;
}

std::optional<std::size_t> PipeControl::FindListening() const
{
    const std::size_t slots = ReadHeader().slotCount;
    for (std::size_t index = 0; index < slots; ++index)
    {
        if (IsServerAlive(index) && ReadSlot(index).phase == PipePhase::Listening)
        {
            return index;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> PipeControl::TakeSlot(PipePhase phase, std::optional<std::size_t> own) const
{
    PipeHeader header = ReadHeader();
    std::size_t index = 0;
    while (index < header.slotCount && (index == own || IsServerAlive(index) || IsClientAlive(index)))
    {
        ++index;
    }
    for (const std::size_t direction : {toServer, toClient})
    {
        const std::string path = DataPath(index, direction);
        // What a killed server left is not used again: a client may still have it open.
        unlink(path.c_str());
        if (!Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)).IsOpen())
        {
            return FailWithErrno(std::nullopt);
        }
    }
    PipeSlot slot{};
    slot.phase = phase;
    header.slotCount = std::max(header.slotCount, static_cast<DWORD>(index) + 1);
    if (!SetByteLock(File(), ServerByte(index), F_WRLCK) ||
        !WriteAt(File(), &slot, sizeof slot, SlotOffset(index)) ||
        !WriteAt(File(), &header, sizeof header, objectDataOffset))
    {
        return FailWithErrno(std::nullopt);
    }
    return index;
}

std::string PipeControl::DataPath(std::size_t index, std::size_t direction) const
{
    // '~' is in no escaped name, so that no pipe's name can collide.
    return file_->Path() + "~" + std::to_string(index) + (direction == toServer ? "in" : "out");
}

std::optional<std::string> PipePath(const WCHAR* name)
{
    const std::u16string prefix = FoldCase(u"\\\\.\\pipe\\");
    const std::u16string folded = name == nullptr ? std::u16string() : FoldCase(name);
    if (!folded.starts_with(prefix) || folded.size() == prefix.size())
    {
        return FailWith(ERROR_INVALID_NAME, std::nullopt);
    }
    return RootFolder() + "/pipe/" + EscapeFileName(Utf8(std::u16string_view(folded).substr(prefix.size())));
}

std::mutex& PipeMutex()
{
    // Never destroyed: modules close pipes in their static destructors.
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}
} // namespace sndxposix
