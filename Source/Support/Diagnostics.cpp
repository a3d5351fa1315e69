#include "Support/Diagnostics.h"

#include "Platform/FileHandle.h"

#include <unistd.h>

#include <string>

namespace tdw {

namespace {

void writeLine(std::string line)
{
    line += '\n';
    // There is nowhere left to report that standard error cannot be written.
    (void)writeToDescriptor(STDERR_FILENO, std::as_bytes(std::span(line)));
}

} // namespace

void reportError(std::string_view message, const char* file, int line)
{
    writeLine(
        "[ERROR] (" + std::string(file) + ":" + std::to_string(line) + ") " + std::string(message));
}

void reportWarning(std::string_view message)
{
    writeLine("WARN: " + std::string(message));
}

} // namespace tdw
