#pragma once

#include "Output/Console.h"
#include "Platform/Result.h"

#include <string_view>

namespace tdw::cli {

/// The whole of the terminal, for as long as it lives; what was there before comes back then.
class Screen {
public:
    explicit Screen(const Console& console);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    /// Shows lines from the top, as far as they fit. Errors: `ExitStatus::OutputNotWritten`
    Result<void> show(std::string_view text);

    /// Gives the terminal back while the process is stopped, and takes it again.
    void stopProcess();

private:
    void enter();
    void leave();

    const Console& m_console;
};

} // namespace tdw::cli
