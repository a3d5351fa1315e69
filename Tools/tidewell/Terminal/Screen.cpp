#include "Terminal/Screen.h"

#include "Terminal/TerminalMode.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <utility>

namespace tdw::cli {

namespace {

// The second screen of the terminal, without a cursor.
constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view kLeave = "\x1b[?25h\x1b[?1049l";

constexpr std::string_view kClearLine = "\x1b[K";
constexpr std::string_view kClearAll = "\x1b[2J";

struct KeyName {
    std::string_view bytes;
    Key key;
};

/// Longer ones first, so that none is taken for the beginning of another.
constexpr KeyName kKeyNames[]
    = { { "\x1b[5~", Key::PageUp }, { "\x1b[6~", Key::PageDown }, { "\x1b[1~", Key::First },
          { "\x1b[4~", Key::Last }, { "\x1b[A", Key::Up }, { "\x1b[B", Key::Down },
          { "\x1b[H", Key::First }, { "\x1b[F", Key::Last }, { "\x1bOA", Key::Up },
          { "\x1bOB", Key::Down }, { "\x1bOH", Key::First }, { "\x1bOF", Key::Last },
          { "k", Key::Up }, { "j", Key::Down }, { "b", Key::PageUp }, { " ", Key::PageDown },
          { "g", Key::First }, { "G", Key::Last }, { "q", Key::Quit }, { "Q", Key::Quit } };

std::string moveToLine(std::size_t index)
{
    return "\x1b[" + std::to_string(index + 1) + ";1H";
}

} // namespace

ScreenSize sizeOfTerminal(int descriptor)
{
    winsize size {};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {};
    return { size.ws_col, size.ws_row };
}

std::vector<Key> keysIn(std::string_view bytes)
{
    std::vector<Key> keys;
    while (!bytes.empty()) {
        const auto* const found = std::ranges::find_if(
            kKeyNames, [&](const KeyName& name) { return bytes.starts_with(name.bytes); });
        if (found == std::end(kKeyNames)) {
            bytes.remove_prefix(1);
            continue;
        }
        keys.push_back(found->key);
        bytes.remove_prefix(found->bytes.size());
    }
    return keys;
}

Screen::Screen(const Console& console)
    : m_console(console)
{
    enter();
}

Screen::~Screen()
{
    leave();
}

ScreenSize Screen::size() const
{
    return sizeOfTerminal(STDOUT_FILENO);
}

Result<void> Screen::show(std::vector<std::string> lines)
{
    // One write, so that no half of it is seen.
    std::string frame(std::exchange(m_isForgotten, false) ? kClearAll : "");
    const std::size_t count = std::max(lines.size(), m_shown.size());
    lines.resize(count);
    m_shown.resize(count, std::string(1, '\0'));
    for (std::size_t i = 0; i < count; ++i) {
        if (lines[i] != m_shown[i])
            frame += moveToLine(i) + lines[i] + std::string(kClearLine);
    }
    m_shown = std::move(lines);
    return frame.empty() ? Result<void>() : m_console.print(frame);
}

void Screen::forget()
{
    m_shown.clear();
    m_isForgotten = true;
}

void Screen::stopProcess()
{
    leave();
    (void)std::raise(SIGSTOP);
    enter();
}

void Screen::enter()
{
    m_keys = RawTerminalMode::create(RawTerminalMode::Signals::Kept);
    (void)m_console.print(kEnter);
    forget();
}

void Screen::leave()
{
    (void)m_console.print(kLeave);
    m_keys.reset();
}

} // namespace tdw::cli
