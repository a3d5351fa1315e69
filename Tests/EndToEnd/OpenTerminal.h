#pragma once

#include "Platform/System/FileHandle.h"
#include "Support/Testing.h"

#include <stdexcept>

/// The controlling end of a new terminal. Where there are none, the test ends here and says so,
/// instead of waiting for output that cannot come.
inline tdw::FileHandle openTerminal()
{
    tdw::FileHandle terminal(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal.isOpen() || grantpt(terminal.descriptor()) != 0
        || unlockpt(terminal.descriptor()) != 0
        || access(ptsname(terminal.descriptor()), R_OK | W_OK) != 0)
        throw std::runtime_error("this test needs a terminal, and /dev/pts has none");
    return terminal;
}
