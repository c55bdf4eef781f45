#include "tools/simulator/plan.h"

namespace sndxtools::simulator
{
namespace
{
struct Folder
{
    const char* setting;
    const char* path;
    unsigned outer; // the folder it lies in; itself for none
};
constexpr Folder folders[folderCount] = {
    {"C:\\Sim\\Bilder", "C:\\Sim\\Bilder", 0},
    {"C:\\Sim\\Bilder\\Urlaub", "C:\\sim\\bilder\\URLAUB", 0},
    {"C:\\Sim\\Mit Leerzeichen\\", "C:\\Sim\\Mit Leerzeichen", 2},
    {"C:\\Sim\\M\u00fcll \u20ac", "C:\\Sim\\M\u00fcll \u20ac", 3},
    {"D:\\", "D:", 4},
    {"c:\\sim\\PUNKT.ordner", "C:\\Sim\\Punkt.Ordner", 5},
    {"C:/Sim/schr\u00e4g", "C:/Sim/schr\u00e4g", 6},
    {"C:\\Sim\\tief\\a\\b\\c\\d\\e\\f\\g", "C:\\Sim\\tief\\a\\b\\c\\d\\e\\f\\g", 7},
};
constexpr char itemName[] = "nicht da.txt";
} // namespace

Random StreamOf(std::uint64_t seed, Kind kind, std::uint64_t index)
{
    return Random((seed * 2 + static_cast<std::uint64_t>(kind)) * 1'000'003 + index);
}

std::string FolderSetting(unsigned folder)
{
    return folders[folder].setting;
}

std::string ItemPath(unsigned folder, Random& random)
{
    const char separator = folder == 6 ? '/' : '\\';
    std::string path = folders[folder].path;
    for (std::uint64_t depth = random() % 4; depth > 0; --depth)
    {
        path += separator + std::string(1 + random() % 9, 'x');
    }
    return path + separator + itemName;
}

bool IsSelectedPath(const std::string& path)
{
    return path.ends_with(itemName) || (!path.empty() && path.find_first_not_of('p') == path.npos);
}

Settings SettingsOf(std::uint64_t seed, std::uint32_t epoch)
{
    Random random = StreamOf(seed, Kind::settings, epoch);
    const auto accounts = static_cast<std::uint32_t>(random() % (1u << folderCount));
    const auto oddAccounts = static_cast<std::uint32_t>(random());
    const std::uint64_t program = random() % 6;
    return {accounts, oddAccounts,
            program == 0   ? InstalledProgram::present
            : program == 1 ? InstalledProgram::missing
                           : InstalledProgram::none,
            random() % 4 == 0, random() % 4 == 0};
}

bool Belongs(const Settings& settings, unsigned folder)
{
    return (settings.accounts >> folder & 1) != 0 || (settings.accounts >> folders[folder].outer & 1) != 0;
}
} // namespace sndxtools::simulator
