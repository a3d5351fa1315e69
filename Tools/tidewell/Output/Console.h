#pragma once

#include "Output/Colour.h"
#include "Platform/Result.h"

#include <string_view>

namespace tdw::cli {

/// The two streams of the tool: data goes to standard output, everything that is said about it to
/// standard error.
class Console {
public:
    Console();

    /// How to write on standard output and on standard error.
    ColourMode outputColours() const { return m_outputColours; }
    ColourMode errorColours() const { return m_errorColours; }

    /// Whether what is said can be taken back and said anew in the same line.
    bool canRedraw() const { return m_canRedraw; }

    /// Writes data. Errors: `ExitStatus::OutputNotWritten`.
    Result<void> print(std::string_view text) const;

    /// Writes a whole message, line end included. Where it cannot be written nobody reads it.
    void say(std::string_view message) const;

private:
    ColourMode m_outputColours;
    ColourMode m_errorColours;
    bool m_canRedraw;
};

/// Whether `error` is the reader of standard output having gone, which is no news to anybody.
bool isClosedOutput(const Error& error);

} // namespace tdw::cli
