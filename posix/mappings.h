#pragma once
// The memory mappings of this process.

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <unistd.h>

namespace sndxposix
{
// One line of /proc/self/maps: "7f12a000-7f12b000 rw-p 00000000 08:01 1234   /path".
struct Mapping
{
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char rights[4] = {};
};

// Reads the mappings one after the other, with a small buffer of its own and nothing from the heap: it is
// called inside allocations and checks.
class MappingReader
{
  public:
    MappingReader() : file_(open("/proc/self/maps", O_RDONLY | O_CLOEXEC)) {}
    ~MappingReader()
    {
        if (file_ >= 0)
        {
            close(file_);
        }
    }
    MappingReader(const MappingReader&) = delete;
    MappingReader& operator=(const MappingReader&) = delete;

    bool IsOpen() const { return file_ >= 0; }

    bool Next(Mapping& mapping)
    {
        mapping.begin = Number();
        mapping.end = Number();
        for (char& right : mapping.rights)
        {
            right = static_cast<char>(Take());
        }
        int last = 0;
        while (last != '\n' && last >= 0)
        {
            last = Take();
        }
        return last >= 0;
    }

  private:
    // -1 at the end.
    int Take()
    {
        if (at_ == filled_)
        {
            ssize_t count;
            do
            {
                count = read(file_, buffer_, sizeof buffer_);
            } while (count < 0 && errno == EINTR);
            at_ = 0;
            filled_ = count < 0 ? 0 : static_cast<std::size_t>(count);
            if (filled_ == 0)
            {
                return -1;
            }
        }
        return static_cast<unsigned char>(buffer_[at_++]);
    }
    // A hexadecimal number and the one character behind it.
    std::uintptr_t Number()
    {
        std::uintptr_t value = 0;
        for (int c = Take();; c = Take())
        {
            if (c >= '0' && c <= '9')
            {
                value = value * 16 + static_cast<unsigned>(c - '0');
            }
            else if (c >= 'a' && c <= 'f')
            {
                value = value * 16 + static_cast<unsigned>(c - 'a' + 10);
            }
            else
            {
                return value;
            }
        }
    }

    int file_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    char buffer_[4096];
};
} // namespace sndxposix
