#include "Pictures/TerminalGraphics.h"

#include "Output/Colour.h"
#include "Pairing/Interruption.h"
#include "Platform/FileHandle.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
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

bool ownsTerminal()
{
    struct stat input { };
    struct stat output { };
    return isCapableTerminal(STDIN_FILENO) && isCapableTerminal(STDOUT_FILENO)
        && fstat(STDIN_FILENO, &input) == 0 && fstat(STDOUT_FILENO, &output) == 0
        && input.st_rdev == output.st_rdev && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

/// Programs between this one and the terminal, and the system's own console, take kitty's question
/// for something else: they would show it, or make it a title.
bool mayBeAskedForKitty()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    const char* variable = std::getenv("TERM");
    const std::string_view term = variable ? variable : "";
    return !term.starts_with("screen") && !term.starts_with("tmux") && term != "linux";
}

/// A terminal whose input comes byte by byte and is not shown, for as long as it lives. The keys
/// that would end this process come as bytes, so that nothing ends it in between.
class UncookedTerminal {
public:
    UncookedTerminal()
        : m_isSet(tcgetattr(STDIN_FILENO, &m_previous) == 0)
    {
        if (!m_isSet)
            return;
        termios mode = m_previous;
        mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
        mode.c_cc[VMIN] = 0;
        mode.c_cc[VTIME] = 0;
        m_isSet = tcsetattr(STDIN_FILENO, TCSADRAIN, &mode) == 0;
    }
    UncookedTerminal(const UncookedTerminal&) = delete;
    UncookedTerminal& operator=(const UncookedTerminal&) = delete;
    UncookedTerminal(UncookedTerminal&&) = delete;
    UncookedTerminal& operator=(UncookedTerminal&&) = delete;
    // What has come and was not read is part of an answer that came late.
    ~UncookedTerminal()
    {
        if (m_isSet)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_previous);
    }

    bool isSet() const { return m_isSet; }

private:
    termios m_previous {};
    bool m_isSet;
};

/// Asks, and reads until the answer is complete.
/// @return none where the user interrupts
std::optional<TerminalGraphics> ask(const Interruption& interruption)
{
    const UncookedTerminal terminal;
    const std::string question = std::string(mayBeAskedForKitty() ? kKittyQuestion : "")
        + std::string(kAttributesQuestion);
    if (!terminal.isSet() || !writeToDescriptor(STDOUT_FILENO, std::as_bytes(std::span(question))))
        return TerminalGraphics::None;
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    std::string answer;
    while (answer.size() < kLongestAnswer) {
        const auto awaited = interruption.waitFor(STDIN_FILENO, deadline);
        if (awaited == Interruption::Awaited::Interrupted)
            return std::nullopt;
        std::array<char, 256> bytes {};
        const ssize_t count = awaited == Interruption::Awaited::Event
            ? read(STDIN_FILENO, bytes.data(), bytes.size())
            : 0;
        if (count <= 0)
            return TerminalGraphics::None;
        answer.append(bytes.data(), static_cast<std::size_t>(count));
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
    if (!ownsTerminal())
        return TerminalGraphics::None;
    const auto interruption = Interruption::create();
    if (!interruption)
        return TerminalGraphics::None;
    const auto graphics = ask(*interruption);
    if (!graphics)
        interruption->endProcess();
    return *graphics;
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
