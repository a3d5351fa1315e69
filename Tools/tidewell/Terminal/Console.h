#pragma once

#include "Platform/Queues/EventLoop.h"
#include "Platform/Values/Result.h"
#include "Terminal/Colour.h"

#include <functional>
#include <string_view>

namespace tdw::cli {

/// The two streams of the tool: data goes to standard output, messages go to standard error.
class Console {
public:
    Console();

    /// How to write on standard output and on standard error.
    ColourMode outputColours() const { return m_outputColours; }
    ColourMode errorColours() const { return m_errorColours; }

    /// Whether a message can be replaced by the next one in the same line.
    bool canRedraw() const { return m_canRedraw; }

    /// Writes data. Errors: `ExitStatus::OutputNotWritten`.
    Result<void> print(std::string_view text) const;

    /// Writes a whole message, line end included. What cannot be written is lost.
    void say(std::string_view message) const;

private:
    ColourMode m_outputColours;
    ColourMode m_errorColours;
    bool m_canRedraw;
};

/// Whether `error` says that the reader of standard output has gone, which is not reported.
bool isClosedOutput(const Error& error);

/// Calls the handler when standard output is a pipe whose reader has gone.
EventLoop::Source whenOutputIsUnread(EventLoop& loop, std::function<void()> handler);

} // namespace tdw::cli
