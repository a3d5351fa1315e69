#include "Support/Diagnostics.h"

#include "Platform/System/FileHandle.h"

#include <unistd.h>

#include <string>

namespace tdw {

void reportLine(std::string_view line)
{
    const std::string text = std::string(line) + '\n';
    // There is nowhere left to report that standard error cannot be written.
    (void)writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(text)));
}

void reportError(std::string_view message, const char* file, int line)
{
    reportLine(
        "[ERROR] (" + std::string(file) + ":" + std::to_string(line) + ") " + std::string(message));
}

void reportWarning(std::string_view message)
{
    reportLine("WARN: " + std::string(message));
}

} // namespace tdw
