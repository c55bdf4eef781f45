#pragma once
// Data objects as the shell hands them to an extension: dropped files in global memory, and everything that
// can be wrong with them.

#include <string>
#include <vector>

#include "tools/dropdata.h"

namespace sndxtest
{
struct DropOptions
{
    bool noDropFormat = false; // does not know CF_HDROP
    bool failGetData = false;  // says that it has CF_HDROP, then fails
    bool nullBlock = false;    // succeeds with a null global block
    bool withOwner = false;    // the medium names an owner object, which is counted and frees the block
    bool narrow = false;       // paths in the system's narrow character set
};

// Paths are UTF-8.
sndxtools::ComRef<IDataObject> MakeDropDataObject(const std::vector<std::string>& paths,
                                                  DropOptions options = {});

// Data objects not yet released for the last time, and mediums with an owner that ReleaseStgMedium has not
// been called for.
int LiveDropObjects();
int LiveDropMediums();
} // namespace sndxtest
