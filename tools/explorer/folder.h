#pragma once
#include <vector>

#include <windows.h>
#include <shlobj.h>

#include "tools/comref.h"
#include "tools/explorer/owners.h"
#include "tools/text.h"

namespace sndxtools
{
struct FolderItem
{
    ItemId id; // relative to the folder
    WideString name;
    WideString path;
    WideString type; // "Text Document"
    bool isFolder = false;
    SFGAOF attributes = 0;
    int icon = 0; // in the system's image lists
};

// A folder of the file system, as the shell sees it.
class Folder
{
  public:
    // Throws CallError, std::runtime_error.
    explicit Folder(const WideString& path);

    // Reads the items; folders first. Throws CallError.
    void Read();
    const WideString& Path() const { return path_; }
    const std::vector<FolderItem>& Items() const { return items_; }

    // The system's data object for some of the items. Throws CallError.
    ComRef<IDataObject> DataObject(const std::vector<std::size_t>& items) const;

  private:
    FolderItem Describe(ItemId id);

    WideString path_;
    ItemId id_; // from the desktop
    ComRef<IShellFolder> folder_;
    std::vector<FolderItem> items_;
};
} // namespace sndxtools
