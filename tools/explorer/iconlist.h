#pragma once
#include <map>

#include "tools/explorer/overlays.h"

namespace sndxtools
{
// Icons of a system's image list, and the overlays, in a list of our own: the system's lists are those of the
// whole process and stay as they are. The copies have no alpha channel: Wine's image lists draw an image that
// has one without its overlay.
class IconList
{
  public:
    // The ground is the colour that the icons will be drawn on. Throws CallError.
    IconList(HIMAGELIST system, COLORREF ground);

    // All overlays of the handlers. Throws CallError.
    void AddOverlays(const OverlayHandlers& overlays, bool large);

    // The image in this list for one in the system's; copied at first use. Throws CallError.
    int Image(int systemImage);

    HIMAGELIST Get() const { return list_.get(); }

  private:
    int Add(HICON icon);

    HIMAGELIST system_;
    COLORREF ground_;
    Owned<HIMAGELIST> list_;
    std::map<int, int> images_; // from the system's to ours
};
} // namespace sndxtools
