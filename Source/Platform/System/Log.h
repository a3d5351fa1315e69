#pragma once

#include <string>
#include <string_view>

namespace tdw {

/// Messages of one part of the system, for the administrator of this machine.
///
///     const Log log("org.example.Product", "Client");
///     log.error("Cannot connect to " + path);
///
/// They go to the journal with the fields SUBSYSTEM and CATEGORY, by which `journalctl
/// CATEGORY=Client` finds them. Where there is no journal, errors go to standard
/// error, one line each, and the rest nowhere. Where the process is verbose, all messages go to
/// standard error as well. Safe for use by several threads at
/// once.
class Log {
public:
    Log(std::string subsystem, std::string category);

    /// From now on all messages of this process go to standard error as well.
    static void beVerbose();

    void debug(std::string_view message) const;
    void info(std::string_view message) const;
    void notice(std::string_view message) const;
    void error(std::string_view message) const;

private:
    void log(int priority, std::string_view message) const;
    bool sendToJournal(int priority, std::string_view message) const;

    std::string m_subsystem;
    std::string m_category;
};

} // namespace tdw
