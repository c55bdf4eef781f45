#pragma once
#include <cstdint>

namespace sndxtools::simulator
{
// Makes the accounts of the machine's settings those of the bits, and no others. The per-user settings lose
// the main program's path. Throws CallError.
void WriteAccounts(std::uint32_t accounts);
} // namespace sndxtools::simulator
