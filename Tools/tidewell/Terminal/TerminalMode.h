#pragma once

#include <termios.h>

#include <memory>

namespace tdw::cli {

/// A terminal whose input comes byte by byte and is not shown, for as long as it lives. Input that
/// was not read by then is dropped.
class RawTerminalMode {
public:
    /// What the keys for signals do (Ctrl-C, Ctrl-Z): send signals, or come as bytes.
    enum class Signals { Kept, AsBytes };

    /// Null where this process does not own the terminal: where standard input and output are not
    /// one terminal, or this process is in its background.
    static std::unique_ptr<RawTerminalMode> create(Signals signals);

    RawTerminalMode(const RawTerminalMode&) = delete;
    RawTerminalMode& operator=(const RawTerminalMode&) = delete;
    ~RawTerminalMode();

private:
    explicit RawTerminalMode(const termios& previous)
        : m_previous(previous)
    {
    }

    termios m_previous;
};

} // namespace tdw::cli
