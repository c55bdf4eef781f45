#pragma once
#include "windows.h"
#include "sndx/com.h"
