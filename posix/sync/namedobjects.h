#pragma once
// Objects that processes share by name. Each is a file below <root>/objects or <root>/pipe. The object
// lives while somebody holds its life lock (descriptor.h), which ends with the holder's process; a file that
// nobody holds is a leftover of killed processes and counts as absent. All locks are open-file-description
// locks on single bytes, so that two handles of one process exclude each other like two processes.

#include <memory>
#include <optional>
#include <string>

#include <fcntl.h>

#include "posix/base/descriptor.h"
#include "sndx/types.h"

namespace sndxposix
{
enum class NamedKind : std::uint32_t
{
    Mutex = 1,
    Section = 2,
    Pipe = 3,
};

// Bytes of an object's file that stand for locks. The bytes' contents do not matter.
inline constexpr off_t lifeByte = 0;
inline constexpr off_t gateByte = 1; // held for the few microseconds of a look at the shared state
inline constexpr off_t firstSlotByte = 16;

// Where an object's own data begins: after the locks and the kind.
inline constexpr off_t objectDataOffset = 64;

// Exclusive use of an object's shared state between processes, and between handles of one process; not
// between threads that use the same descriptor. Blocks while another holder is inside: microseconds, unless
// that process is stopped, by a debugger say. A killed one lets go.
class Gate
{
  public:
    explicit Gate(int file) : file_(file) { WaitForByteLock(file, gateByte); }
    ~Gate() { SetByteLock(file_, gateByte, F_UNLCK); }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

  private:
    const int file_;
};

// One holder's link to an object.
class NamedFile
{
  public:
    enum class Access
    {
        Create, // hold the object; make it when nobody holds it
        Open,   // hold the existing object
        Attach, // use the existing object without keeping it alive
    };

    // Null with the last error set: ERROR_FILE_NOT_FOUND, ERROR_INVALID_HANDLE when the name belongs to an
    // object of another kind, or what the file system says. existed tells whether others held the object.
    // data are the first bytes of a new object's own data.
    static std::unique_ptr<NamedFile> Enter(const std::string& path, NamedKind kind, Access access,
                                            bool* existed, const void* data, std::size_t dataSize);
    // Lets go of the object. The last one to do so removes the file.
    ~NamedFile();
    NamedFile(const NamedFile&) = delete;
    NamedFile& operator=(const NamedFile&) = delete;

    int File() const { return file_.Get(); }
    const std::string& Path() const { return path_; }

  private:
    NamedFile(std::string path, Descriptor file, bool holds)
        : path_(std::move(path)), file_(std::move(file)), holds_(holds)
    {
    }
    const std::string path_;
    const Descriptor file_;
    const bool holds_;
};

// The path of the file of a mutex or section. Nothing, with the last error set, without a name, and for one
// that is too long, has an unknown prefix or a backslash behind the prefix.
std::optional<std::string> NamedObjectPath(const WCHAR* name);
// A file name made of any text: letters, digits, '-' and '_' stand for themselves.
std::string EscapeFileName(std::string_view text);
} // namespace sndxposix
