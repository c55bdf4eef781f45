#include "posix/registry_store.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "sndx/registry.h"

#include "posix/descriptor.h"
#include "posix/internal.h"

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

void SetText(RegistryKey& root, const RegistryPath& path, std::u16string_view name,
             const std::u16string& text)
{
    std::vector<BYTE> data((text.size() + 1) * sizeof(char16_t));
    std::memcpy(data.data(), text.c_str(), data.size());
    SetRegistryValue(MakeRegistryKey(root, path), name, REG_SZ, std::move(data));
}

// What the file need not hold. Of this, what was deleted comes back when the file is read afresh.
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
        const Descriptor lockFile(
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
        Descriptor file(open(Path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
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
            return ERROR_REGISTRY_CORRUPT;
        }
        std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
        if (!ReadAt(file.Get(), bytes.data(), bytes.size(), 0))
        {
            return ERROR_REGISTRY_CORRUPT; // somebody is cutting it just now
        }
        ApplyRegistryText(DecodeRegistryFile(bytes), root_);
        stamp_ = StampOf(status);
        stamp_.known = !IsYoung(stamp_);
        file_ = std::move(file);
        return 0;
    }

    // Readers see the old file or the new one, never a part.
    LSTATUS Save()
    {
        const std::string text = WriteRegistryText(root_);
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
        stamp_ = StampOf(status);
        file_ = std::move(file);
        return 0;
    }

    std::mutex mutex_;
    RegistryKey root_;
    Stamp stamp_;
    Descriptor file_;
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
} // namespace sndxposix
