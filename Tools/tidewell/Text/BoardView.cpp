#include "Text/BoardView.h"

#include "Terminal/Screen.h"
#include "Text/BoardText.h"
#include "Text/ErrorText.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <string>
#include <utility>

namespace tdw::cli {

namespace {

class TerminalView final : public BoardView {
public:
    explicit TerminalView(const Console& console)
        : m_console(console)
        , m_screen(console)
    {
    }

    Result<void> show(const DeviceBoard& board, const std::vector<Error>& problems) override
    {
        const ScreenSize size = m_screen.size();
        const Glyphs glyphs = glyphsOfLocale();
        auto notes = noteLines(problems, size.columns, glyphs);
        const auto lines = boardLines(board,
            { .columns = size.columns,
                .glyphs = glyphs,
                .colours = m_console.outputColours(),
                .now = std::chrono::steady_clock::now() });
        // The devices come first; of the notes, what fits below them.
        const std::size_t room
            = size.lines > notes.size() + 3 ? size.lines - notes.size() : size.lines;
        m_pageLines = room > 3 ? room - 2 : 1;
        auto page = pageOf(lines, room, m_first);
        for (std::string& note : notes) {
            if (page.size() < size.lines)
                page.push_back(std::move(note));
        }
        return m_screen.show(std::move(page));
    }

    Result<void> happened(const DeviceEvent&) override { return {}; }
    void redraw() override { m_screen.forget(); }
    void stopProcess() override { m_screen.stopProcess(); }
    bool hasKeys() const override { return m_screen.hasKeys(); }

    bool typed(std::string_view bytes) override
    {
        for (const Key key : keysIn(bytes)) {
            switch (key) {
            case Key::Quit:
                return false;
            case Key::Up:
                m_first -= std::min<std::size_t>(m_first, 1);
                break;
            case Key::PageUp:
                m_first -= std::min(m_first, m_pageLines);
                break;
            case Key::First:
                m_first = 0;
                break;
            case Key::Down:
                m_first += 1;
                break;
            case Key::PageDown:
                m_first += m_pageLines;
                break;
            case Key::Last:
                m_first = kBeyondAll;
                break;
            }
        }
        return true;
    }

private:
    /// `pageOf` takes the largest that can be shown instead.
    static constexpr std::size_t kBeyondAll = std::size_t { 1 } << 30;

    std::vector<std::string> noteLines(
        const std::vector<Error>& problems, std::size_t columns, Glyphs glyphs) const
    {
        std::vector<std::string> notes;
        for (const Error& problem : problems) {
            std::string text = warningText(problem, { m_console.outputColours() });
            while (!text.empty()) {
                const std::string line = text.substr(0, text.find('\n'));
                text.erase(0, line.size() + 1);
                notes.push_back(fitted(line, columns, glyphs));
            }
        }
        return notes;
    }

    const Console& m_console;
    Screen m_screen;
    /// The first line below the heading that is shown.
    std::size_t m_first = 0;
    std::size_t m_pageLines = 1;
};

class LineView final : public BoardView {
public:
    explicit LineView(const Console& console)
        : m_console(console)
    {
    }

    Result<void> happened(const DeviceEvent& event) override
    {
        const Date now
            = std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now());
        return m_console.print(eventText(event, now, m_console.outputColours()));
    }

    Result<void> show(const DeviceBoard& board, const std::vector<Error>& problems) override
    {
        for (const Error& problem : problems) {
            if (std::ranges::find(m_problems, problem) == m_problems.end())
                m_console.say(warningText(problem, { m_console.errorColours() }));
        }
        if (problems.empty() && !m_problems.empty())
            m_console.say("tidewell: All devices can be seen again.\n");
        m_problems = problems;

        std::map<std::string, std::string> lines;
        for (const auto& [udid, device] : board.devices()) {
            // A device that is being asked gets its line when it has answered.
            if (device.isAsked && !device.answeredAt)
                continue;
            lines[udid] = lineOf(deviceCells(udid, device, glyphsOfLocale()));
            for (const BoardCompanion& companion : device.companions) {
                if (companion.battery || !companion.remark.empty())
                    lines[udid + " " + companion.identifier]
                        = lineOf(companionCells(companion, glyphsOfLocale()));
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
    std::vector<Error> m_problems;
};

} // namespace

std::unique_ptr<BoardView> boardView(const Console& console)
{
    if (isCapableTerminal(STDOUT_FILENO))
        return std::make_unique<TerminalView>(console);
    return std::make_unique<LineView>(console);
}

} // namespace tdw::cli
