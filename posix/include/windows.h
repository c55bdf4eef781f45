#pragma once
// The Windows interfaces that the product, its tools and its tests call; one header per family.

#include "sndx/types.h"
#include "sndx/text.h"
#include "sndx/files.h"
#include "sndx/modules.h"
#include "sndx/memory.h"
#include "sndx/sync.h"
#include "sndx/processes.h"
#include "sndx/pipes.h"
#include "sndx/registry.h"
#include "sndx/security.h"
#include "sndx/system.h"
#include "sndx/menu.h"
