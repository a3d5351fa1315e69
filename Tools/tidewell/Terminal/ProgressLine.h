#pragma once

#include "Terminal/Console.h"

#include <string>
#include <string_view>

namespace tdw::cli {

/// A line on standard error that says what is being waited for. On a terminal it changes in place
/// and is gone in the end; elsewhere each new message is a line that stays.
class ProgressLine {
public:
    explicit ProgressLine(const Console& console);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ProgressLine(ProgressLine&&) = delete;
    ProgressLine& operator=(ProgressLine&&) = delete;
    ~ProgressLine() { clear(); }

    /// @param message what is being waited for
    /// @param remark what changes all the time, such as the time that is left; for terminals only
    void show(std::string_view message, std::string_view remark);

    /// Takes the line off the terminal.
    void clear();

private:
    const Console& m_console;
    std::string m_shown;
};

} // namespace tdw::cli
