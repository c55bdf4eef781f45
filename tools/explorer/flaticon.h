#pragma once
#include "tools/explorer/owners.h"

namespace sndxtools
{
// The icon as it looks on a ground of that colour, without an alpha channel: what is wholly transparent is in
// its mask, soft edges are mixed with the ground. Null when the system fails.
Owned<HICON> Flattened(HICON icon, COLORREF ground);
} // namespace sndxtools
