#pragma once
// POSIX descriptors: their owner, whole transfers, and locks on single bytes of a file.

#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>

#include <sys/types.h>
#include <unistd.h>

namespace sndxposix
{
// Closes the descriptor; -1 for none.
class Descriptor
{
  public:
    explicit Descriptor(int value = -1) : value_(value) {}
    ~Descriptor()
    {
        if (value_ >= 0)
        {
            close(value_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(value_, other.value_);
        return *this;
    }
    int Get() const { return value_; }
    bool IsOpen() const { return value_ >= 0; }

  private:
    int value_;
};

// Moves size bytes unless the end of the file or an error comes first; the number moved. transfer(done) moves
// the rest from there on, as read() and write() do. errno is 0 when there was no error.
template <class Transfer>
std::size_t MoveAll(std::size_t size, Transfer transfer)
{
    errno = 0;
    std::size_t done = 0;
    for (ssize_t count = 1; done < size && count > 0;)
    {
        count = TEMP_FAILURE_RETRY(transfer(done));
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return done;
}
// True when all bytes were moved; a short file reads as failure.
bool ReadAt(int file, void* buffer, std::size_t size, off_t offset);
bool WriteAt(int file, const void* buffer, std::size_t size, off_t offset);

// True while the path names the file of this descriptor: it may have been deleted or replaced since.
bool StillNames(const std::string& path, int file);

// Locks belong to the open file description: two handles of one process exclude each other like two
// processes, and the lock ends with the description, also when the process is killed. lockType is F_RDLCK,
// F_WRLCK or F_UNLCK. False, with errno set, when somebody else's lock is in the way.
bool SetByteLock(int file, off_t byte, short lockType);
// Blocks until the byte can be locked for writing.
void WaitForByteLock(int file, off_t byte);
bool IsByteLockedByOther(int file, off_t byte);
// Takes all locks of the description back at once, even if a child process about to start another program
// still has a copy of the descriptor.
void UnlockAllBytes(int file);
} // namespace sndxposix
