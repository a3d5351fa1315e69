#pragma once

#include "Platform/Export.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/Result.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tdw {

/// What to start, and with what around it. Texts must not hold a NUL.
struct TDW_EXPORT LaunchOptions {
    /// The path of the executable; it is not searched for.
    std::string executable {};

    /// What the child sees as its own name (`argv[0]`); empty: the executable's path.
    std::string programName {};

    /// The arguments after the program name.
    std::vector<std::string> arguments {};

    /// Variables set or replaced in the child, on top of this process's own environment.
    std::vector<std::pair<std::string, std::string>> environment {};

    /// Leaves this process's own environment out: the variables above are all that the child gets.
    bool hasOnlyThatEnvironment = false;

    /// Descriptors that become the child's standard streams; none: this process's own. They stay
    /// the caller's and are not closed here.
    std::optional<int> standardInput {};
    std::optional<int> standardOutput {};
    std::optional<int> standardError {};

    /// Makes the child the leader of a process group of its own, so that it and its descendants
    /// can be ended together.
    bool ownProcessGroup = false;
};

/// How a child ended: its exit status, or the number of the signal that killed it.
struct TDW_EXPORT Termination {
    std::int32_t status = 0;
    bool bySignal = false;

    /// False, with a status of -1, where the application took the status: it ignores SIGCHLD, or
    /// waits for any child. Then only what the child left behind says whether it succeeded.
    bool isKnown = true;

    bool operator==(const Termination&) const = default;
};

/// A child process: started with default signal dispositions, an empty signal mask and no
/// descriptor but its standard streams.
///
/// The destructor never leaves a zombie behind: a child still running then is killed (with its
/// group, where it has one) and waited for. Not safe for use by two threads at once.
class TDW_EXPORT Process {
public:
    /// Errors: `kPosixErrorDomain`, naming the executable (ENOENT, EACCES, ENOEXEC, EAGAIN, …;
    /// EINVAL for a text that holds a NUL).
    static Result<Process> launch(const LaunchOptions& options);

    Process(Process&& other) noexcept;
    Process& operator=(Process&& other) noexcept;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    pid_t identifier() const { return m_identifier; }

    /// A descriptor, owned by this object, that polls readable once the child has ended.
    int descriptor() const { return m_descriptor.descriptor(); }

    /// Waits without a bound for the child's end and reaps it; later calls return the same again.
    /// Whatever else is left of the child's own process group is killed first, so that the end of
    /// the child is the end of its descendants too (before Linux 6.9 only where the status is
    /// known: after that nothing else keeps the group's number from being another's).
    Termination waitUntilExit();

    /// The same within a bound; none when the child is still running at its end.
    std::optional<Termination> waitUntilExit(std::chrono::milliseconds timeout);

    /// Sends a signal to the child, or to its whole group where it has one of its own. Nothing
    /// happens once the child has been reaped, by whatever part of the process.
    void sendSignal(int signalNumber);

private:
    Process(pid_t identifier, FileHandle descriptor, bool ownsGroup);

    pid_t m_identifier = -1;
    FileHandle m_descriptor;
    bool m_ownsGroup = false;
    std::optional<Termination> m_termination;
};

} // namespace tdw
