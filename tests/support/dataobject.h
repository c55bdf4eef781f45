#pragma once
// Data objects as the shell hands them to an extension: dropped files in global memory, and everything that
// can be wrong with them.

#include <memory>
#include <string>
#include <vector>

#include <windows.h>
#include <shlobj.h>

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

// Offers paths (UTF-8) as CF_HDROP in TYMED_HGLOBAL; nothing else is implemented.
class DropDataObject : public IDataObject
{
  public:
    // Objects not yet released for the last time, and mediums with an owner that ReleaseStgMedium has not
    // been called for.
    static int LiveObjects();
    static int LiveMediums();
};

struct ReleaseInterface
{
    void operator()(IUnknown* object) const { object->Release(); }
};
// Holds one reference.
using DropDataObjectRef = std::unique_ptr<DropDataObject, ReleaseInterface>;
DropDataObjectRef MakeDropDataObject(std::vector<std::string> paths, DropOptions options = {});
} // namespace sndxtest
