#include "Interfaces/StandardOutput.h"

#include "Platform/System/FileHandle.h"

#include <unistd.h>

namespace tdw {

namespace {

// Standard output belongs to the process, and so do these.
// Recursive, because the clock writes through the same writer while it holds the guard.
std::recursive_timed_mutex gMutex;
bool gHasAnswer = false;

} // namespace

StandardOutputGuard::StandardOutputGuard()
    : m_lock(gMutex)
{
}

StandardOutputGuard::StandardOutputGuard(std::chrono::milliseconds bound)
    : m_lock(gMutex, bound)
{
}

bool StandardOutputGuard::hasAnswer() const
{
    return gHasAnswer;
}

Result<void> StandardOutputGuard::writeAnswer(std::span<const std::byte> envelope)
{
    gHasAnswer = true;
    return writeToDescriptor(STDOUT_FILENO, envelope);
}

} // namespace tdw
