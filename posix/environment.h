#pragma once
#include <mutex>

namespace sndxposix
{
// Taken by every use of the process's environment in this layer.
std::mutex& EnvironmentMutex();
} // namespace sndxposix
