#include "Terminal/TerminalGraphics.h"

#include "Platform/System/FileHandle.h"
#include "Terminal/ScopedSignalMask.h"
#include "Terminal/TerminalMode.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>

namespace tdw::cli {

namespace {

/// Every terminal answers this with its attributes, and so ends the wait.
constexpr std::string_view kAttributesQuestion = "\x1b[c";

/// Whether a picture of one pixel could be shown; answered by terminals that understand it.
constexpr std::string_view kKittyQuestion = "\x1b_Gi=31,s=1,v=1,a=q,t=d,f=24;AAAA\x1b\\";
constexpr std::string_view kKittyAnswer = "\x1b_Gi=31;OK\x1b\\";

constexpr std::chrono::seconds kLongestWait { 1 };
constexpr std::size_t kLongestAnswer = 4096;
constexpr char kInterruptKey = '\x03';

/// Programs between this one and the terminal, and the system's own console, take kitty's question
/// for something else: they would show it, or make it a title.
bool mayBeAskedForKitty()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    const char* variable = std::getenv("TERM");
    const std::string_view term = variable ? variable : "";
    return !term.starts_with("screen") && !term.starts_with("tmux") && term != "linux";
}

/// Waits for bytes on standard input. @return none at the deadline
std::string readBytes(std::chrono::steady_clock::time_point deadline)
{
    const auto left
        = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd entry { STDIN_FILENO, POLLIN, 0 };
    std::array<char, 256> bytes {};
    if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0)
        return {};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    return { bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)) };
}

/// Asks, and reads until the answer is complete.
/// @return none where the user interrupts
std::optional<TerminalGraphics> ask()
{
    const std::string question = std::string(mayBeAskedForKitty() ? kKittyQuestion : "")
        + std::string(kAttributesQuestion);
    if (!writeToDescriptor(STDOUT_FILENO, std::as_bytes(std::span(question))))
        return TerminalGraphics::None;
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    std::string answer;
    while (answer.size() < kLongestAnswer) {
        const std::string bytes = readBytes(deadline);
        if (bytes.empty())
            break;
        answer += bytes;
        if (answer.find(kInterruptKey) != std::string::npos)
            return std::nullopt;
        if (const auto graphics = graphicsIn(answer))
            return graphics;
    }
    return TerminalGraphics::None;
}

} // namespace

TerminalGraphics findTerminalGraphics()
{
    // The keys for signals come as bytes, and signals of other processes wait, so that nothing ends
    // this one before the terminal is as it was.
    std::optional<TerminalGraphics> graphics = TerminalGraphics::None;
    {
        const ScopedSignalMask signals({ SIGINT, SIGTERM, SIGHUP });
        if (const auto mode = RawTerminalMode::create(RawTerminalMode::Signals::AsBytes))
            graphics = ask();
    }
    if (!graphics)
        (void)std::raise(SIGINT);
    return graphics.value_or(TerminalGraphics::None);
}

std::optional<TerminalGraphics> graphicsIn(std::string_view answer)
{
    // The attributes come last: "ESC [ ? 62 ; 4 c", where 4 stands for sixel.
    const auto start = answer.find("\x1b[?");
    if (start == std::string_view::npos)
        return std::nullopt;
    auto attributes = answer.substr(start + 3);
    const auto end = attributes.find_first_not_of("0123456789;");
    if (end == std::string_view::npos)
        return std::nullopt;
    if (answer.find(kKittyAnswer) != std::string_view::npos)
        return TerminalGraphics::Kitty;
    const std::string list = ";" + std::string(attributes.substr(0, end)) + ";";
    const bool hasSixel = attributes[end] == 'c' && list.find(";4;") != std::string::npos;
    return hasSixel ? TerminalGraphics::Sixel : TerminalGraphics::None;
}

TerminalFrame terminalFrame()
{
    // For terminals that do not tell: the usual, and characters of a usual size.
    constexpr unsigned kUsualRows = 24;
    constexpr unsigned kUsualColumns = 80;
    constexpr unsigned kRowHeight = 16;
    constexpr unsigned kColumnWidth = 8;
    // For the prompt that comes after the picture.
    constexpr unsigned kRowsLeft = 2;

    winsize size {};
    (void)ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    const unsigned rows = size.ws_row > 0 ? size.ws_row : kUsualRows;
    const unsigned columns = size.ws_col > 0 ? size.ws_col : kUsualColumns;
    const unsigned height = size.ws_ypixel > 0 ? size.ws_ypixel : rows * kRowHeight;
    const unsigned width = size.ws_xpixel > 0 ? size.ws_xpixel : columns * kColumnWidth;
    const unsigned usable = std::max(1U, rows - std::min(rows, kRowsLeft));
    return { columns, usable, { width, std::max(1U, height / rows * usable) } };
}

} // namespace tdw::cli
