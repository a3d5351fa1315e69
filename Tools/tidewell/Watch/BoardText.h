#pragma once

#include "Output/BatteryBar.h"
#include "Output/Colour.h"
#include "Output/Table.h"
#include "Watch/DeviceBoard.h"

#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// The cells of a device: what it is called, how it is reached, its battery and its state.
std::vector<Cell> deviceCells(const std::string& udid, const BoardDevice& device, Glyphs glyphs);
std::vector<Cell> watchCells(const BoardWatch& watch, Glyphs glyphs);

/// The whole board as a table.
std::string boardText(const DeviceBoard& board, Glyphs glyphs, ColourMode colours);

/// As much of `text` as fits a terminal, line by line; our own colours take no place. Lines that do
/// not fit are counted in the last one.
std::vector<std::string> fitted(std::string_view text, std::size_t columns, std::size_t lines);

} // namespace tdw::cli
