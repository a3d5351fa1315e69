#include "Text/BoardText.h"

#include "Devices/DeviceList.h"
#include "Platform/Values/Utf8.h"
#include "Terminal/TextWidth.h"

#include <algorithm>

namespace tdw::cli {

namespace {

constexpr std::string_view kEndOfColour = "\x1b[0m";

/// What a terminal of some width has room for.
struct Layout {
    std::size_t nameWidth;
    std::int64_t barCells;
    bool hasConnection;
    bool hasAge;
};

Layout layoutFor(std::size_t columns)
{
    if (columns == 0 || columns >= 110)
        return { 40, 20, true, true };
    if (columns >= 76)
        return { 24, 10, true, true };
    if (columns >= 56)
        return { 24, 10, false, true };
    return { std::max<std::size_t>(columns * 2 / 5, 8), 0, false, false };
}

Cell batteryCell(const std::optional<Value>& battery, Glyphs glyphs, std::int64_t cells)
{
    return battery ? batteryBar(*battery, glyphs, cells) : Cell {};
}

/// How old what is shown is, in whole minutes.
std::string ageText(const BoardDevice& device, BoardDevice::Clock::time_point now)
{
    if (!device.answeredAt)
        return "";
    const auto minutes
        = std::chrono::duration_cast<std::chrono::minutes>(now - *device.answeredAt).count();
    return minutes < 1 ? "now" : std::to_string(minutes) + " min";
}

std::string deviceName(const std::string& udid, const BoardDevice& device)
{
    return device.name.empty() ? udid : device.name;
}

std::string companionName(const BoardCompanion& companion)
{
    return "  watch " + (companion.name.empty() ? companion.identifier : companion.name);
}

Cell deviceState(const BoardDevice& device)
{
    if (!device.remark.empty())
        return { device.remark, Colour::Magenta };
    if (device.isAsked && !device.answeredAt)
        return { "asking" };
    return { device.battery ? batteryState(*device.battery) : "" };
}

Cell companionState(const BoardCompanion& companion)
{
    if (!companion.remark.empty())
        return { companion.remark, Colour::Magenta };
    return { companion.battery ? batteryState(*companion.battery) : "" };
}

std::string connectionsOf(const BoardDevice& device)
{
    return connectionNames({ {}, { device.connections.begin(), device.connections.end() } });
}

/// The length of what stands at the beginning: a colour, or a character.
std::size_t unitLength(std::string_view text)
{
    if (text.front() == '\x1b')
        return std::min(text.size(), text.find('m') + 1);
    return utf8SequenceLength(text).value_or(1);
}

std::size_t visibleWidth(std::string_view text)
{
    std::size_t width = 0;
    while (!text.empty()) {
        const auto unit = text.substr(0, unitLength(text));
        width += unit.front() == '\x1b' ? 0 : displayWidth(unit);
        text.remove_prefix(unit.size());
    }
    return width;
}

/// A row with the cells that the layout has room for, the name cut to its width.
std::vector<Cell> rowOf(const Layout& layout, const BoardStyle& style, std::vector<Cell> cells)
{
    enum { Name, Battery, State, ConnectionCell, Age };
    // Made safe before it is cut, because an escape must not be cut in two.
    cells[Name].text
        = fitted(withControlCharactersEscaped(cells[Name].text), layout.nameWidth, style.glyphs);
    std::vector<Cell> row { cells[Name], cells[Battery] };
    if (layout.hasAge)
        row.push_back(cells[Age]);
    if (layout.hasConnection)
        row.push_back(cells[ConnectionCell]);
    row.push_back(cells[State]);
    return row;
}

std::vector<std::string> linesOf(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        lines.emplace_back(line);
    }
    return lines;
}

} // namespace

std::vector<Cell> deviceCells(const std::string& udid, const BoardDevice& device, Glyphs glyphs)
{
    return { { deviceName(udid, device), Colour::Bold }, { connectionsOf(device) },
        batteryCell(device.battery, glyphs, 20), deviceState(device) };
}

std::vector<Cell> companionCells(const BoardCompanion& companion, Glyphs glyphs)
{
    return { { companionName(companion) }, { "phone" }, batteryCell(companion.battery, glyphs, 20),
        companionState(companion) };
}

std::vector<std::string> boardLines(const DeviceBoard& board, const BoardStyle& style)
{
    if (board.devices().empty())
        return linesOf("Waiting for a device. Connect one with a cable and unlock it.\n");
    const Layout layout = layoutFor(style.columns);
    Table table;
    table.addRow(rowOf(layout, style,
        { { "DEVICE", Colour::Bold }, { "BATTERY", Colour::Bold }, { "STATE", Colour::Bold },
            { "CONNECTION", Colour::Bold }, { "AGE", Colour::Bold } }));
    for (const auto& [udid, device] : board.devices()) {
        table.addRow(rowOf(layout, style,
            { { deviceName(udid, device), Colour::Bold },
                batteryCell(device.battery, style.glyphs, layout.barCells), deviceState(device),
                { connectionsOf(device) }, { ageText(device, style.now) } }));
        for (const BoardCompanion& companion : device.companions)
            table.addRow(rowOf(layout, style,
                { { companionName(companion) },
                    batteryCell(companion.battery, style.glyphs, layout.barCells),
                    companionState(companion), { "phone" }, {} }));
    }
    auto lines = linesOf(table.text(style.colours));
    for (std::string& line : lines)
        line = style.columns > 0 ? fitted(line, style.columns, style.glyphs) : std::move(line);
    return lines;
}

std::string fitted(std::string_view text, std::size_t columns, Glyphs glyphs)
{
    if (visibleWidth(text) <= columns)
        return std::string(text);
    std::string result;
    std::size_t width = 0;
    bool hasColour = false;
    while (!text.empty()) {
        const std::string_view unit = text.substr(0, unitLength(text));
        const bool isColour = unit.front() == '\x1b';
        width += isColour ? 0 : displayWidth(unit);
        if (width >= columns)
            break;
        hasColour |= isColour;
        result += unit;
        text.remove_prefix(unit.size());
    }
    if (columns > 0)
        result += glyphs == Glyphs::Unicode ? "…" : "~";
    return hasColour ? result + std::string(kEndOfColour) : result;
}

std::vector<std::string> pageOf(
    const std::vector<std::string>& all, std::size_t lines, std::size_t& first)
{
    if (all.size() <= lines) {
        first = 0;
        return all;
    }
    // The heading and the last line stay where there is room for a device between them.
    const bool hasFrame = lines >= 3;
    const std::size_t room = hasFrame ? lines - 2 : lines;
    const std::size_t count = all.size() - 1;
    first = std::min(first, count - room);
    const auto begin = all.begin() + 1 + static_cast<std::ptrdiff_t>(first);
    std::vector<std::string> page(begin, begin + static_cast<std::ptrdiff_t>(room));
    if (hasFrame) {
        page.insert(page.begin(), all.front());
        page.push_back("(" + std::to_string(first + 1) + " to " + std::to_string(first + room)
            + " of " + std::to_string(count) + ")");
    }
    return page;
}

} // namespace tdw::cli
