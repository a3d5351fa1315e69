#pragma once

#include "Platform/Values/Result.h"
#include "Terminal/Console.h"
#include "Terminal/TerminalMode.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

struct ScreenSize {
    std::size_t columns = 80;
    std::size_t lines = 24;
};

/// The size of the terminal behind a descriptor, or the usual one.
ScreenSize sizeOfTerminal(int descriptor);

enum class Key { Up, Down, PageUp, PageDown, First, Last, Quit };

/// The keys in what a terminal has sent; what means nothing is left out.
std::vector<Key> keysIn(std::string_view bytes);

/// The whole of the terminal, for as long as it lives; what was there before comes back then. Keys
/// come one by one and are not shown, where standard input is the same terminal.
class Screen {
public:
    explicit Screen(const Console& console);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    ScreenSize size() const;

    /// Whether keys can be read from standard input.
    bool hasKeys() const { return m_keys != nullptr; }

    /// Shows lines from the top, and writes only those that have changed.
    /// Errors: `ExitStatus::OutputNotWritten`
    Result<void> show(std::vector<std::string> lines);

    /// Writes all lines the next time, as after a change of the size.
    void forget();

    /// Gives the terminal back while the process is stopped, and takes it again.
    void stopProcess();

private:
    void enter();
    void leave();

    const Console& m_console;
    std::unique_ptr<RawTerminalMode> m_keys;
    std::vector<std::string> m_shown;
    bool m_isForgotten = true;
};

} // namespace tdw::cli
