#pragma once

#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <thread>

/// What a process holds and must give back: counted before and after a piece of work.
struct ProcessResources {
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;
    bool hasChildren = false;

    bool operator==(const ProcessResources&) const = default;

    static ProcessResources now()
    {
        const auto entries = [](const char* directory) {
            return std::distance(std::filesystem::directory_iterator(directory), {});
        };
        siginfo_t ignored {};
        const bool hasChildren = waitid(P_ALL, 0, &ignored, WEXITED | WNOHANG | WNOWAIT) == 0;
        return { entries("/proc/self/fd"), entries("/proc/self/task"), hasChildren };
    }

    /// What the process holds once that is `expected`, or at the end of a bound: the system lists a
    /// thread for a moment after it was joined.
    static ProcessResources settling(const ProcessResources& expected)
    {
        const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        ProcessResources resources = now();
        while (resources != expected && std::chrono::steady_clock::now() < bound) {
            std::this_thread::yield();
            resources = now();
        }
        return resources;
    }

    /// Whether the process comes to hold no more than `bound`, which may have been counted while
    /// threads of earlier work were still ending.
    static bool settleWithin(const ProcessResources& bound)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < end) {
            const ProcessResources current = now();
            if (current.descriptors <= bound.descriptors && current.threads <= bound.threads
                && current.hasChildren <= bound.hasChildren)
                return true;
            std::this_thread::yield();
        }
        return false;
    }
};

inline void PrintTo(const ProcessResources& resources, std::ostream* stream)
{
    *stream << resources.descriptors << " descriptors, " << resources.threads << " threads, "
            << (resources.hasChildren ? "children" : "no child");
}
