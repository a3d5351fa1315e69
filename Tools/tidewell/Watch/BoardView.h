#pragma once

#include "Events/EventText.h"
#include "Output/Console.h"
#include "Platform/Error.h"
#include "Platform/Result.h"
#include "Watch/DeviceBoard.h"

#include <memory>
#include <optional>
#include <vector>

namespace tdw::cli {

/// Shows a board to people.
class BoardView {
public:
    BoardView() = default;
    BoardView(const BoardView&) = delete;
    BoardView& operator=(const BoardView&) = delete;
    virtual ~BoardView() = default;

    /// Shows the board as it is now.
    /// @param events what has happened since the last time
    /// @param outage why nothing comes at present
    /// Errors: `ExitStatus::OutputNotWritten`
    virtual Result<void> show(const DeviceBoard& board,
        const std::vector<service::DeviceEvent>& events, const std::optional<Error>& outage)
        = 0;

    /// The terminal's user wants the process stopped.
    virtual void stopProcess() = 0;
};

/// A table that is redrawn in place on a terminal, or a line for each change elsewhere.
std::unique_ptr<BoardView> boardView(const Console& console);

} // namespace tdw::cli
