#pragma once
// Global blocks, for whoever is given one.

#include <span>

#include "sndx/types.h"

namespace sndxposix
{
// The live block with this handle, or the one whose data begins at this address; empty for none.
std::span<const BYTE> FindGlobalBlock(const void* handleOrAddress);
} // namespace sndxposix
