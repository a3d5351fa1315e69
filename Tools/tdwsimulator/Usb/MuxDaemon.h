#pragma once

#include "Model/Simulation.h"
#include "Platform/System/Process.h"
#include "Platform/Values/Result.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace tdw::simulator {

/// The system's own multiplexer daemon, unmodified, with the virtual bus for its USB and the
/// directories "run" and "lib" below `directory` for /run and /var/lib.
///
/// It is started and ended as the system does it: started with the first device on the bus, and
/// told to end, if it has nothing else, when the last one leaves. An `Absent` fault at the
/// multiplexer ends it. Used by the thread that runs the context.
class MuxDaemon {
public:
    /// @param program the daemon's executable
    MuxDaemon(asio::io_context& context, Simulation& simulation, std::filesystem::path directory,
        std::filesystem::path program);
    MuxDaemon(const MuxDaemon&) = delete;
    MuxDaemon& operator=(const MuxDaemon&) = delete;
    ~MuxDaemon();

    std::filesystem::path socket() const;

    /// Starts or ends it, according to devices and faults. Errors: what keeps it from starting.
    Result<void> follow();

    /// To be called when the daemon listens: follows what it announces into the log.
    void listen();

    bool isRunning() const { return m_process.has_value(); }

    /// What the daemon has written so far.
    std::string messages() const;

private:
    Result<void> start();
    void stop(int signal);
    void askToEnd();
    void watchEnd();
    bool hasDevice() const;

    asio::io_context& m_context;
    Simulation& m_simulation;
    std::filesystem::path m_directory;
    std::filesystem::path m_program;
    std::optional<Process> m_process;
    asio::posix::stream_descriptor m_end;
    bool m_isAsking = false;
};

/// Runs the daemon in this process's place: in a mount namespace of its own, where /run and
/// /var/lib are the directories "run" and "lib" below `directory`, and until its parent ends.
/// Returns only with an error: namespaces need root's rights, or a kernel that allows them to all.
Error becomeMuxDaemon(const std::filesystem::path& directory, const std::filesystem::path& program);

} // namespace tdw::simulator
