#include "Watch/BoardView.h"

#include "Errors/ErrorText.h"
#include "Watch/BoardText.h"
#include "Watch/Screen.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <map>
#include <set>
#include <string>

namespace tdw::cli {

namespace {

class TerminalView final : public BoardView {
public:
    explicit TerminalView(const Console& console)
        : m_console(console)
        , m_screen(console)
    {
    }

    Result<void> show(const DeviceBoard& board, const std::vector<service::DeviceEvent>&,
        const std::optional<Error>& outage) override
    {
        const ColourMode colours = m_console.outputColours();
        std::string text = boardText(board, glyphsOfLocale(), colours);
        if (outage)
            text += "\n" + warningText(*outage, colours);
        return m_screen.show(text);
    }

    void stopProcess() override { m_screen.stopProcess(); }

private:
    const Console& m_console;
    Screen m_screen;
};

class LineView final : public BoardView {
public:
    explicit LineView(const Console& console)
        : m_console(console)
    {
    }

    Result<void> show(const DeviceBoard& board, const std::vector<service::DeviceEvent>& events,
        const std::optional<Error>& outage) override
    {
        const Date now
            = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
        for (const service::DeviceEvent& event : events)
            TDW_TRY(m_console.print(eventText(event, now, m_console.outputColours())));
        if (outage && !m_isOutageSaid)
            m_console.say(warningText(*outage, m_console.errorColours()));
        m_isOutageSaid = outage.has_value();

        std::map<std::string, std::string> lines;
        for (const auto& [udid, device] : board.devices()) {
            // A device that is being asked is told of when it has answered.
            if (device.isAsked && !device.isTrusted)
                continue;
            lines[udid] = lineOf(deviceCells(udid, device, glyphsOfLocale()));
            for (const BoardWatch& watch : device.watches) {
                if (watch.battery)
                    lines[udid + " " + watch.identifier]
                        = lineOf(watchCells(watch, glyphsOfLocale()));
            }
        }
        for (const auto& [key, line] : lines) {
            const auto shown = m_shown.find(key);
            if (shown == m_shown.end() || shown->second != line)
                TDW_TRY(m_console.print(line));
        }
        m_shown = std::move(lines);
        return {};
    }

    void stopProcess() override { (void)std::raise(SIGSTOP); }

private:
    std::string lineOf(std::vector<Cell> cells) const
    {
        Table table;
        table.addRow(std::move(cells));
        return table.text(m_console.outputColours());
    }

    const Console& m_console;
    std::map<std::string, std::string> m_shown;
    bool m_isOutageSaid = false;
};

} // namespace

std::unique_ptr<BoardView> boardView(const Console& console)
{
    if (isCapableTerminal(STDOUT_FILENO))
        return std::make_unique<TerminalView>(console);
    return std::make_unique<LineView>(console);
}

} // namespace tdw::cli
