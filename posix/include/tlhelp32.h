#pragma once
#include "windows.h"
#include "sndx/snapshots.h"
