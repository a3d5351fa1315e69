#pragma once

#include "Support/Testing.h"

#include <sys/syscall.h>

#include <cerrno>
#include <charconv>
#include <iterator>
#include <set>

inline std::filesystem::path directoryOf(pid_t process)
{
    return "/proc/" + std::to_string(process);
}

/// The processes of this user that have a text in their environment, without this one. A server
/// writes no core, so that only root may read its environment; for others it is told by its
/// session, which is its service's.
inline std::vector<pid_t> processesWith(const std::string& text)
{
    static std::set<pid_t> sessions;
    std::vector<pid_t> processes;
    std::vector<pid_t> unreadable;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        pid_t process = 0;
        const auto parsed = std::from_chars(name.data(), name.data() + name.size(), process);
        if (parsed.ptr != name.data() + name.size() || process == getpid())
            continue;
        const auto environment = entry.path() / "environ";
        if (access(environment.c_str(), R_OK) != 0 && errno == EACCES) {
            // What has ended and waits to be collected has no command line any more.
            if (!contentsOf(entry.path() / "cmdline").empty())
                unreadable.push_back(process);
        } else if (contentsOf(environment).find(text) != std::string::npos) {
            processes.push_back(process);
            if (getsid(process) == process)
                sessions.insert(process);
        }
    }
    std::ranges::copy_if(unreadable, std::back_inserter(processes),
        [](pid_t process) { return sessions.contains(getsid(process)); });
    return processes;
}

inline std::string commandOf(pid_t process)
{
    return contentsOf(directoryOf(process) / "cmdline").c_str();
}

/// What another process holds: its descriptors and its threads.
inline std::pair<std::ptrdiff_t, std::ptrdiff_t> resourcesOf(pid_t process)
{
    const auto entries = [process](const char* directory) {
        std::error_code error;
        return std::distance(
            std::filesystem::directory_iterator(directoryOf(process) / directory, error), {});
    };
    return { entries("fd"), entries("task") };
}

/// Ends a process that may be another's child, and waits for its end.
inline void killAndWait(pid_t process)
{
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    kill(process, SIGKILL);
    pollfd entry { handle, POLLIN, 0 };
    EXPECT_EQ(poll(&entry, 1, 30'000), 1);
    close(handle);
}
