#pragma once
#include "tools/explorer/owners.h"

namespace sndxtools
{
// The icon with 32 bits a pixel and transparency in its alpha channel. An image list of 32 bits mixes by
// alpha; an icon of fewer colours has its transparency in a mask and no alpha. Windows puts alpha in when
// such an icon joins the list, Wine does not: the picture then is nothing but transparent. Null when the
// system fails.
Owned<HICON> WithAlpha(HICON icon);
} // namespace sndxtools
