#pragma once
#include <string>
#include <vector>

#include "tools/explorer/folder.h"
#include "tools/explorer/registry.h"

namespace sndxtools
{
struct OverlayHandler
{
    RegisteredHandler registered;
    ComRef<IShellIconOverlayIdentifier> object; // none when it is of no use
    std::string problem;                        // why it is of no use
    int priority = 0;                           // 0 to 100, 0 is the highest
    WideString iconFile;
    int iconIndex = 0;
    Owned<HICON> icon;
    int overlay = 0; // its number in the image lists, from 1
};

// The registered overlay handlers, created when this is and released with it.
class OverlayHandlers
{
  public:
    explicit OverlayHandlers(bool largeIcons);

    const std::vector<OverlayHandler>& Handlers() const { return handlers_; }

    // The number of the overlay that the item carries, 0 for none.
    int OverlayOf(const FolderItem& item) const;

  private:
    std::vector<OverlayHandler> handlers_; // the most important first
};
} // namespace sndxtools
