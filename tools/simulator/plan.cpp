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
} // namespace

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
    return path + separator + "nicht da.txt";
}

std::uint32_t Accounts(std::uint64_t seed, std::uint32_t epoch)
{
    return static_cast<std::uint32_t>(Random(seed * 1'000'003 + epoch)()) % (1u << folderCount);
}

bool Belongs(std::uint32_t accounts, unsigned folder)
{
    return (accounts >> folder & 1) != 0 || (accounts >> folders[folder].outer & 1) != 0;
}
} // namespace sndxtools::simulator
