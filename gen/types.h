#pragma once
// Basic types of every room: the system's own, and the capacity that all fixed text buffers share.

#include <cstddef>
#include <cstdint>

#include <windows.h>

static_assert(sizeof(WCHAR) == 2, "the text unit is UTF-16"); // contract.md M1

// Capacity of every fixed text buffer (paths, file names, registry and object names), in characters and
// including the terminator: such a buffer holds at most 259 characters.
constexpr std::size_t LSTR = 260;
static_assert(sizeof(WCHAR[LSTR]) == 520); // contract.md M1
