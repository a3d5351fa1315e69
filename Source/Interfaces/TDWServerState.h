#pragma once

#include "Platform/Export.h"

extern "C" {

/// Whether this process went through a server's initialisation step; the response writers complain
/// where it did not. False at load, set once by the step, never reset.
TDW_EXPORT extern bool __gTDWServerInitialized;

/// The level of debug output asked of the device libraries: always 0, off.
TDW_EXPORT int TDWDebugLevel();
}
