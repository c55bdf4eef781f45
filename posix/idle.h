#pragma once

namespace sndxposix
{
// How a parent hands the descriptor for the idle announcement to a child: "DESCRIPTOR:INODE" of a pipe.
inline constexpr char idleVariable[] = "SNDX_IDLE";
} // namespace sndxposix
