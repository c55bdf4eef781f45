#pragma once
// The process's environment.

#include <string>
#include <vector>

namespace sndxposix
{
// How a parent hands the descriptor for the idle announcement to a child: "DESCRIPTOR:INODE" of a pipe.
inline constexpr char idleVariable[] = "SNDX_IDLE";

// All variables, "NAME=VALUE" each, as they are between two calls of SetEnvironmentVariableW.
std::vector<std::string> CopyEnvironment();
} // namespace sndxposix
