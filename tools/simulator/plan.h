#pragma once
#include <cstdint>
#include <random>
#include <string>

namespace sndxtools::simulator
{
using Random = std::mt19937_64;

// Everything that all processes of a run can work out from its seed: the folders that accounts may have, and
// what the settings are in each of their epochs.
constexpr unsigned folderCount = 8;

// The settings of an epoch and what a host does come from a stream for each of them, so that the third host
// does the same whenever it is started.
enum class Kind
{
    settings,
    host
};
Random StreamOf(std::uint64_t seed, Kind kind, std::uint64_t index);

// Folders of odd shapes: closing separators, blanks, characters of several bytes, one below another.
std::string FolderSetting(unsigned folder);
// An item below the folder. It does not exist, so the overlay is drawn exactly when the folder is an
// account's.
std::string ItemPath(unsigned folder, Random& random);
// What an item of a selection may be called, the first one and the others.
bool IsSelectedPath(const std::string& path);

enum class InstalledProgram
{
    none,
    missing, // a file that does not exist
    present
};
struct Settings
{
    std::uint32_t accounts;    // one bit for each folder
    std::uint32_t oddAccounts; // one for each of those that have no folder
    InstalledProgram program;  // that a request without a pipe starts
    bool guarded;              // blocks of the module end at pages that nobody may touch
    bool fromScratch;          // the accounts' key goes before it comes again
};
Settings SettingsOf(std::uint64_t seed, std::uint32_t epoch);

// An item of the folder belongs to an account, whatever account that is: some folders lie in others.
bool Belongs(const Settings& settings, unsigned folder);
} // namespace sndxtools::simulator
