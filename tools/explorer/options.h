#pragma once
#include <array>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <windows.h>

#include "tools/commandline.h"

namespace sndxtools
{
struct ExplorerOptions
{
    std::string folder; // a full path
    bool largeIcons = true;
    std::array<int, 4> place = {40, 40, 600, 420}; // left, top, width, height in pixels
    std::vector<std::string> selected;

    bool menu = false;
    std::string hover;  // the entry to highlight, empty for none
    std::string choose; // the entry to choose, empty for none
    bool report = false;
    std::string screenshot;
    std::string ready;
    DWORD wait = 300; // milliseconds

    bool OpensMenu() const { return menu || !hover.empty() || !choose.empty(); }
    // The window works by itself and closes.
    bool IsScripted() const { return OpensMenu() || report || !screenshot.empty(); }
};

// None when help was asked for; it is written to out then. Throws UsageError.
std::optional<ExplorerOptions> ParseExplorerOptions(const Arguments& arguments, std::ostream& out);
} // namespace sndxtools
