#pragma once

#include "Platform/Export.h"

extern "C" {

/// The framework's version as a number that grows: major * 10000 + minor * 100 + patch.
TDW_EXPORT extern const double TidewellVersionNumber;

/// The framework's version in decimal, NUL-terminated: "1.2.3".
TDW_EXPORT extern const char TidewellVersionString[];
}
