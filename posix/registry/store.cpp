// The registry's file, and the tree that it was read into.

#include "posix/registry/store.h"

#include <chrono>
#include <fstream>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "posix/base/call.h"
#include "posix/base/descriptor.h"
#include "posix/base/locked.h"
#include "posix/files/paths.h"
#include "posix/text/charsets.h"
#include "sndx/registry.h"

namespace sndxposix
{
namespace
{
// A file beyond this is not ours and not sensible.
constexpr off_t maximumFileSize = off_t{64} << 20;

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

// What the file need not hold. Of this, what was deleted comes back when the file is read afresh.
void AddOwnFacts(RegistryKey& root)
{
    MakeRegistryKey(root, {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Classes"});
    MakeRegistryKey(root, {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Wow6432Node"});
    MakeRegistryKey(root, {u"HKEY_CURRENT_USER", u"Software"});
    SetRegistryValue(MakeRegistryKey(root, {u"HKEY_LOCAL_MACHINE", u"HARDWARE", u"DESCRIPTION", u"System",
                                            u"CentralProcessor", u"0"}),
                     u"ProcessorNameString", REG_SZ, TextData(ProcessorName()));
    SetRegistryValue(MakeRegistryKey(root, {u"HKEY_LOCAL_MACHINE", u"SOFTWARE", u"Microsoft", u"Windows NT",
                                            u"CurrentVersion"}),
                     u"ReleaseId", REG_SZ, TextData(u"2009"));
}

class Store
{
  public:
    LSTATUS Look(const RegistryUse& look)
    {
        const LSTATUS error = Refresh();
        return error != 0 ? error : look(root_);
    }

    LSTATUS Alter(const RegistryUse& change)
    {
        // Holders only read and write the file, so the wait is short; a killed one's lock ends with it.
        const Descriptor lockFile(
            open((RootFolder() + "/registry.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666));
        if (!lockFile.IsOpen() || TEMP_FAILURE_RETRY(flock(lockFile.Get(), LOCK_EX)) != 0)
        {
            return ErrnoStatus();
        }
        LSTATUS error = Refresh();
        if (error == 0)
        {
            // Until the file is written the tree is not what the file says, also if the rest throws.
            const std::optional<Stamp> stamp = std::exchange(stamp_, std::nullopt);
            error = change(root_);
            if (error == 0)
            {
                return Save();
            }
            stamp_ = stamp;
        }
        return error;
    }

  private:
    // Which file the tree was read from; all 0 for none. The file stays open meanwhile, so that no other file
    // can have the same number.
    struct Stamp
    {
        dev_t device = 0;
        ino_t number = 0;
        off_t size = 0;
        std::chrono::nanoseconds changed{};

        Stamp() = default;
        explicit Stamp(const struct stat& status)
            : device(status.st_dev), number(status.st_ino), size(status.st_size),
              changed(std::chrono::seconds(status.st_mtim.tv_sec) +
                      std::chrono::nanoseconds(status.st_mtim.tv_nsec))
        {
        }
        bool operator==(const Stamp&) const = default;

        // A file changed within the last moments may change again without showing it: times of files go in
        // steps of some milliseconds.
        bool IsYoung() const
        {
            const auto age = std::chrono::system_clock::now().time_since_epoch() - changed;
            return age < std::chrono::milliseconds(50);
        }
    };

    std::string Path() const { return RootFolder() + "/registry.reg"; }

    LSTATUS Refresh()
    {
        struct stat status = {};
        const bool exists = stat(Path().c_str(), &status) == 0;
        if (!exists && errno != ENOENT)
        {
            return ErrnoStatus();
        }
        return stamp_ == (exists ? Stamp(status) : Stamp()) ? 0 : Load();
    }

    LSTATUS Load()
    {
        stamp_.reset();
        // Without O_NONBLOCK something that is no file could keep the call for ever.
        Descriptor file(open(Path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        struct stat status = {};
        if (!file.IsOpen() ? errno != ENOENT : fstat(file.Get(), &status) != 0)
        {
            return ErrnoStatus();
        }
        root_ = RegistryKey();
        AddOwnFacts(root_);
        Stamp stamp;
        if (file.IsOpen())
        {
            if (!S_ISREG(status.st_mode) || status.st_size > maximumFileSize)
            {
                return ERROR_REGISTRY_CORRUPT;
            }
            std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
            if (!ReadAt(file.Get(), bytes.data(), bytes.size(), 0))
            {
                return ERROR_REGISTRY_CORRUPT; // somebody is cutting it just now
            }
            ApplyRegistryFile(bytes, root_);
            stamp = Stamp(status);
        }
        if (!stamp.IsYoung())
        {
            stamp_ = stamp;
        }
        file_ = std::move(file);
        return 0;
    }

    // Readers see the old file or the new one, never a part.
    LSTATUS Save()
    {
        const std::string text = WriteRegistryFile(root_);
        const std::string path = Path() + ".new";
        Descriptor file(open(path.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_CLOEXEC, 0666));
        struct stat status = {};
        if (!file.IsOpen() || !WriteAt(file.Get(), text.data(), text.size(), 0) ||
            fstat(file.Get(), &status) != 0 || rename(path.c_str(), Path().c_str()) != 0)
        {
            const LSTATUS error = ErrnoStatus();
            unlink(path.c_str());
            return error;
        }
        stamp_ = Stamp(status);
        file_ = std::move(file);
        return 0;
    }

    RegistryKey root_;
    std::optional<Stamp> stamp_; // nothing: the tree is to be read
    Descriptor file_;
};

} // namespace

LONG LookIntoRegistry(const RegistryUse& look)
{
    return Locked<Store>()->Look(look);
}

LONG AlterRegistry(const RegistryUse& change)
{
    return Locked<Store>()->Alter(change);
}
} // namespace sndxposix
