#include "posix/registry_store.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "sndx/registry.h"

#include "posix/guarded.h"
#include "posix/internal.h"

namespace sndxposix
{
namespace
{
// A file beyond this is not ours and not sensible.
constexpr off_t maximumFileSize = off_t{64} << 20;

class FileDescriptor
{
  public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor()
    {
        if (descriptor_ >= 0)
        {
            close(descriptor_);
        }
    }
    int Get() const { return descriptor_; }
    bool IsOpen() const { return descriptor_ >= 0; }

  private:
    int descriptor_;
};

LSTATUS ErrnoStatus()
{
    return static_cast<LSTATUS>(ErrorFromErrno(errno));
}

std::u16string ProcessorName()
{
    std::ifstream information("/proc/cpuinfo");
    for (std::string line; std::getline(information, line);)
    {
        const std::size_t colon = line.find(": ");
        if (line.starts_with("model name") && colon != std::string::npos)
        {
            return Utf16(line.substr(colon + 2));
        }
    }
    utsname system{};
    uname(&system);
    return Utf16(system.machine);
}

void SetText(RegistryKey& root, const RegistryPath& path, std::u16string_view name, std::u16string text)
{
    std::vector<BYTE> data((text.size() + 1) * sizeof(char16_t));
    std::memcpy(data.data(), text.c_str(), data.size());
    SetRegistryValue(MakeRegistryKey(root, path), name, REG_SZ, std::move(data));
}

// What an empty store holds. The file tells only what differs from this, also what was deleted of it.
void AddOwnFacts(RegistryKey& root)
{
    MakeRegistryKey(root, {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Classes"});
    MakeRegistryKey(root, {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Wow6432Node"});
    MakeRegistryKey(root, {u"HKEY_CURRENT_USER", u"Software"});
    SetText(root, {u"HKEY_LOCAL_MACHINE", u"HARDWARE", u"DESCRIPTION", u"System", u"CentralProcessor", u"0"},
            u"ProcessorNameString", ProcessorName());
    SetText(root, {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Microsoft", u"Windows NT", u"CurrentVersion"},
            u"ReleaseId", u"2009");
}

class Store
{
  public:
    LSTATUS Look(const RegistryUse& look)
    {
        const std::lock_guard lock(mutex_);
        const LSTATUS error = Refresh();
        return error != 0 ? error : look(root_);
    }

    LSTATUS Alter(const RegistryUse& change)
    {
        const std::lock_guard lock(mutex_);
        // Holders only read and write the file, so the wait is short; a killed one's lock ends with it.
        const FileDescriptor lockFile(
            open((RootFolder() + "/registry.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666));
        if (!lockFile.IsOpen())
        {
            return ErrnoStatus();
        }
        while (flock(lockFile.Get(), LOCK_EX) != 0)
        {
            if (errno != EINTR)
            {
                return ErrnoStatus();
            }
        }
        LSTATUS error = Refresh();
        if (error == 0)
        {
            // Until the file is written the tree is not what the file says, also if the rest throws.
            const Stamp stamp = std::exchange(stamp_, Stamp{});
            error = change(root_);
            if (error != 0)
            {
                stamp_ = stamp;
                return error;
            }
            error = Save();
        }
        return error;
    }

  private:
    // Which file the tree was read from. The file stays open meanwhile, so that no other file can have the
    // same number.
    struct Stamp
    {
        bool known = false;
        bool exists = false;
        dev_t device = 0;
        ino_t number = 0;
        off_t size = 0;
        timespec changed{};

        bool IsSame(const Stamp& other) const
        {
            return known && other.known && exists == other.exists && device == other.device &&
                   number == other.number && size == other.size && changed.tv_sec == other.changed.tv_sec &&
                   changed.tv_nsec == other.changed.tv_nsec;
        }
    };

    static Stamp StampOf(const struct stat& status)
    {
        return {true, true, status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    }

    // A file changed within the last moments may change again without showing it: times of files go in
    // steps of some milliseconds.
    static bool IsYoung(const Stamp& stamp)
    {
        using namespace std::chrono;
        const auto changed = seconds(stamp.changed.tv_sec) + nanoseconds(stamp.changed.tv_nsec);
        const auto age = system_clock::now().time_since_epoch() - changed;
        return age < milliseconds(50);
    }

    std::string Path() const { return RootFolder() + "/registry.reg"; }

    LSTATUS Refresh()
    {
        struct stat status = {};
        const bool exists = stat(Path().c_str(), &status) == 0;
        if (!exists && errno != ENOENT)
        {
            return ErrnoStatus();
        }
        const Stamp present = exists ? StampOf(status) : Stamp{.known = true};
        return stamp_.IsSame(present) ? 0 : Load();
    }

    LSTATUS Load()
    {
        stamp_ = {};
        // Without O_NONBLOCK something that is no file could keep the call for ever.
        FileDescriptor file(open(Path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        struct stat status = {};
        if (!file.IsOpen() ? errno != ENOENT : fstat(file.Get(), &status) != 0)
        {
            return ErrnoStatus();
        }
        root_ = RegistryKey();
        AddOwnFacts(root_);
        if (!file.IsOpen())
        {
            stamp_.known = true;
            return 0;
        }
        if (!S_ISREG(status.st_mode) || status.st_size > maximumFileSize)
        {
            return LSTATUS{ERROR_REGISTRY_CORRUPT};
        }
        std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
        std::size_t done = 0;
        while (done < bytes.size())
        {
            const ssize_t count = read(file.Get(), bytes.data() + done, bytes.size() - done);
            if (count < 0 && errno != EINTR)
            {
                return ErrnoStatus();
            }
            if (count == 0)
            {
                break;
            }
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        bytes.resize(done);
        ApplyRegistryText(DecodeRegistryFile(bytes), root_);
        stamp_ = StampOf(status);
        stamp_.known = !IsYoung(stamp_);
        file_ = std::move(file);
        return 0;
    }

    // Readers see the old file or the new one, never a part.
    LSTATUS Save()
    {
        RegistryKey base;
        AddOwnFacts(base);
        const std::string text = WriteRegistryText(root_, base);
        const std::string path = Path() + ".new";
        FileDescriptor file(open(path.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_CLOEXEC, 0666));
        struct stat status = {};
        bool done = file.IsOpen();
        for (std::size_t written = 0; done && written < text.size();)
        {
            const ssize_t count = write(file.Get(), text.data() + written, text.size() - written);
            done = count > 0 || (count < 0 && errno == EINTR);
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        if (!done || fstat(file.Get(), &status) != 0 || rename(path.c_str(), Path().c_str()) != 0)
        {
            const LSTATUS error = ErrnoStatus();
            unlink(path.c_str());
            return error;
        }
        stamp_ = StampOf(status);
        file_ = std::move(file);
        return 0;
    }

    std::mutex mutex_;
    RegistryKey root_;
    Stamp stamp_;
    FileDescriptor file_;
};

// Never destroyed: modules read settings in their static destructors, at the very end of the process.
Store& TheStore()
{
    static Store& store = *new Store;
    return store;
}
} // namespace

LONG LookIntoRegistry(const RegistryUse& look)
{
    return TheStore().Look(look);
}

LONG AlterRegistry(const RegistryUse& change)
{
    return TheStore().Alter(change);
}

RegistryImport ImportRegistryFile(const char* path)
{
    RegistryImport result;
    result.error = Guarded(LSTATUS{ERROR_NOT_ENOUGH_MEMORY},
                           [&]
                           {
                               std::ifstream file(path, std::ios::binary);
                               const std::string bytes(std::istreambuf_iterator<char>(file), {});
                               if (!file.is_open() || file.bad())
                               {
                                   return LSTATUS{ERROR_FILE_NOT_FOUND};
                               }
                               const std::u16string text = DecodeRegistryFile(bytes);
                               RegistryKey trial;
                               RegistryFileReport report = ApplyRegistryText(text, trial);
                               result.hasHeader = report.hasHeader;
                               result.badLines = report.badLines;
                               result.firstBadLine = report.firstBadLine;
                               return !report.hasHeader ? 0
                                                        : AlterRegistry(
                                                              [&](RegistryKey& root)
                                                              {
                                                                  ApplyRegistryText(text, root);
                                                                  return LSTATUS{0};
                                                              });
                           });
    return result;
}
} // namespace sndxposix
