#pragma once

#include "Devices/DeviceBoard.h"
#include "Platform/Queues/EventLoop.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Terminal/Console.h"
#include "Text/EventText.h"

#include <memory>
#include <vector>

namespace tdw::cli {

/// Shows a board on a terminal.
class BoardView {
public:
    BoardView() = default;
    BoardView(const BoardView&) = delete;
    BoardView& operator=(const BoardView&) = delete;
    virtual ~BoardView() = default;

    /// Shows the board as it is now.
    /// @param problems why not everything can be known at present
    /// Errors: `ExitStatus::OutputNotWritten`
    virtual Result<void> show(const DeviceBoard& board, const std::vector<Error>& problems) = 0;

    /// Something has happened.
    virtual Result<void> happened(const DeviceEvent& event) = 0;

    /// The size of the terminal has changed, or it was used for something else.
    virtual void redraw() { }

    /// The terminal's user wants the process stopped.
    virtual void stopProcess() = 0;

    /// Whether keys can be read from standard input.
    virtual bool hasKeys() const { return false; }

    /// Handles what has been typed. @return whether the user wants to go on
    virtual bool typed(std::string_view) { return true; }
};

/// A table that is redrawn in place on a terminal, or a line for each change elsewhere.
std::unique_ptr<BoardView> boardView(const Console& console);

} // namespace tdw::cli
