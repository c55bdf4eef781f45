#pragma once
#include <cstdint>
#include <random>
#include <string>

namespace sndxtools::simulator
{
using Random = std::mt19937_64;

// The folders that accounts may have, and which of them have one in a given epoch of the settings: everything
// that all processes of a run can work out from its seed.
constexpr unsigned folderCount = 8;

// Folders of odd shapes: closing separators, blanks, characters of several bytes, one below another.
std::string FolderSetting(unsigned folder);
// An item below the folder. It does not exist, so the overlay is drawn exactly when the folder is an
// account's.
std::string ItemPath(unsigned folder, Random& random);

// One bit for each folder.
std::uint32_t Accounts(std::uint64_t seed, std::uint32_t epoch);

// An item of the folder belongs to an account, whatever account that is: some folders lie in others.
bool Belongs(std::uint32_t accounts, unsigned folder);
} // namespace sndxtools::simulator
