#pragma once

#include "Terminal/TerminalPicture.h"

#include <optional>
#include <string_view>

namespace tdw::cli {

/// A way of showing pictures on a terminal.
enum class TerminalGraphics { None, Kitty, Sixel };

/// What this process's terminal understands, which is found out by asking it: where standard input
/// and output are one terminal, and this process is the one that it listens to. Waits for the
/// answer for a second at most; everything that the terminal says meanwhile is taken out of the
/// input.
///
/// Does not return where the user interrupts.
TerminalGraphics findTerminalGraphics();

/// What a terminal's answer says; none as long as it is not complete.
std::optional<TerminalGraphics> graphicsIn(std::string_view answer);

/// How large a picture may be to be seen as a whole.
TerminalFrame terminalFrame();

} // namespace tdw::cli
