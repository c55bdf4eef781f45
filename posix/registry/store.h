#pragma once
// The registry's content: one tree, kept in <root>/registry.reg, that several processes and text editors
// share.

#include <functional>

#include "posix/registry/tree.h"

namespace sndxposix
{
// Works on the tree's root, whose children are the root keys. Returns an error code.
using RegistryUse = std::function<LONG(RegistryKey& root)>;

// Runs the function on the present state. The result is the function's, or an error of the file.
LONG LookIntoRegistry(const RegistryUse& look);
// Runs the function on the present state, alone among all processes, and writes the file before returning.
// A function that returns an error must not have changed anything; nothing is written then.
LONG AlterRegistry(const RegistryUse& change);
} // namespace sndxposix
