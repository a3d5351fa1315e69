#pragma once

#include "Devices/DeviceBoard.h"
#include "Terminal/Colour.h"
#include "Terminal/Table.h"
#include "Text/BatteryBar.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// How a board is shown.
struct BoardStyle {
    /// As many as the terminal has; 0: as many as the texts take.
    std::size_t columns = 0;
    Glyphs glyphs = Glyphs::Ascii;
    ColourMode colours = ColourMode::Off;
    std::chrono::steady_clock::time_point now {};
};

/// The cells of a device or a watch for a line of their own: the name, how it is reached, the
/// battery and the state.
std::vector<Cell> deviceCells(const std::string& udid, const BoardDevice& device, Glyphs glyphs);
std::vector<Cell> companionCells(const BoardCompanion& companion, Glyphs glyphs);

/// The whole board as lines, the heading first: the name and the battery, and what else there is
/// room for. Long texts are cut, and no line is wider than the terminal.
std::vector<std::string> boardLines(const DeviceBoard& board, const BoardStyle& style);

/// As much of `text` as fits into columns, with a mark where something is left out. Our own colours
/// take no place.
std::string fitted(std::string_view text, std::size_t columns, Glyphs glyphs);

/// The lines of `all` that a terminal shows: the heading and those from `first` on. Where there are
/// more than fit, the last line says which these are.
/// @param first is changed to one that can be shown
std::vector<std::string> pageOf(
    const std::vector<std::string>& all, std::size_t lines, std::size_t& first);

} // namespace tdw::cli
