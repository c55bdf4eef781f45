#pragma once
// A data object as the shell hands it to a handler: a selection of items in the CF_HDROP format.

#include <vector>

#include <windows.h>
#include <ole2.h>

#include "tools/comref.h"
#include "tools/text.h"

namespace sndxtools
{
// The paths need not exist, may lie in several folders and have any length; they are passed on as given.
ComRef<IDataObject> CreateDropData(const std::vector<WideString>& paths);
} // namespace sndxtools
