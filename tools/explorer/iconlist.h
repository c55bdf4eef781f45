#pragma once
#include <map>

#include "tools/explorer/owners.h"

namespace sndxtools
{
// Icons of a system's image list, and the overlays, in a list of our own: the system's lists are those of the
// whole process and stay as they are. The copies have no alpha channel, soft edges are mixed with the colour
// of windows: Wine's image lists draw an image that has one without its overlay.
class IconList
{
  public:
    // Throws CallError.
    explicit IconList(bool large);

    // The overlays have numbers from 1 on. Throws CallError.
    void AddOverlay(HICON icon, int number);
    // The image in this list for one in the system's; copied at first use. Throws CallError.
    int Image(int systemImage);

    HIMAGELIST Get() const { return list_.get(); }

  private:
    int Add(HICON icon);

    HIMAGELIST system_ = nullptr; // the process's own: not to be changed or freed
    int width_ = 0;
    int height_ = 0;
    Owned<HIMAGELIST> list_;
    std::map<int, int> images_; // from the system's to ours
};
} // namespace sndxtools
