#include "Interfaces/TidewellVersion.h"

const double TidewellVersionNumber
    = TIDEWELL_VERSION_MAJOR * 10000.0 + TIDEWELL_VERSION_MINOR * 100.0 + TIDEWELL_VERSION_PATCH;
const char TidewellVersionString[] = TIDEWELL_VERSION;
