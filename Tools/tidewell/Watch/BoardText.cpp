#include "Watch/BoardText.h"

#include "Devices/DeviceList.h"
#include "Output/TextWidth.h"
#include "Platform/Value.h"

#include <algorithm>

namespace tdw::cli {

namespace {

constexpr std::string_view kEndOfColour = "\x1b[0m";

Cell batteryCell(const std::optional<Value>& battery, Glyphs glyphs)
{
    return battery ? batteryBar(*battery, glyphs) : Cell {};
}

/// The length of what stands at the beginning: a colour, or a character.
std::size_t unitLength(std::string_view text)
{
    if (text.front() == '\x1b')
        return std::min(text.size(), text.find('m') + 1);
    std::size_t length = 1;
    // The texts are UTF-8 by now.
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        ++length;
    return length;
}

std::string fittedLine(std::string_view line, std::size_t columns)
{
    std::string result;
    std::size_t width = 0;
    while (!line.empty()) {
        const std::string_view unit = line.substr(0, unitLength(line));
        line.remove_prefix(unit.size());
        if (unit.front() != '\x1b') {
            width += displayWidth(unit);
            if (width > columns)
                return result.find('\x1b') == result.npos ? result
                                                          : result + std::string(kEndOfColour);
        }
        result += unit;
    }
    return result;
}

} // namespace

std::vector<Cell> deviceCells(const std::string& udid, const BoardDevice& device, Glyphs glyphs)
{
    const ListedDevice listed { udid, { device.connections.begin(), device.connections.end() } };
    const bool isPlain = device.remark.empty();
    std::string state = device.battery ? batteryState(*device.battery) : "";
    if (device.isAsked && !device.isTrusted)
        state = "asking";
    return { { device.name.empty() ? udid : device.name, Colour::Bold },
        { connectionNames(listed) }, batteryCell(device.battery, glyphs),
        { isPlain ? std::move(state) : device.remark, isPlain ? Colour::None : Colour::Yellow } };
}

std::vector<Cell> watchCells(const BoardWatch& watch, Glyphs glyphs)
{
    return { { "  watch " + watch.identifier }, { "phone" }, batteryCell(watch.battery, glyphs),
        { watch.battery ? batteryState(*watch.battery) : "" } };
}

std::string boardText(const DeviceBoard& board, Glyphs glyphs, ColourMode colours)
{
    if (board.devices().empty())
        return "Waiting for a device. Connect one with a cable and unlock it.\n";
    Table table({ "DEVICE", "CONNECTION", "BATTERY", "STATE" });
    for (const auto& [udid, device] : board.devices()) {
        table.addRow(deviceCells(udid, device, glyphs));
        for (const BoardWatch& watch : device.watches)
            table.addRow(watchCells(watch, glyphs));
    }
    return table.text(colours);
}

std::vector<std::string> fitted(std::string_view text, std::size_t columns, std::size_t lines)
{
    std::vector<std::string> result;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        result.push_back(fittedLine(line, columns));
    }
    if (result.size() > lines && lines > 0) {
        const std::size_t hidden = result.size() - lines + 1;
        result.resize(lines);
        result.back() = fittedLine("(" + std::to_string(hidden) + " more lines)", columns);
    }
    return result;
}

} // namespace tdw::cli
