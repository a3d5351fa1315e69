#pragma once

#include "Support/Testing.h"

#include <sys/wait.h>

#include <iterator>
#include <ostream>

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
        ProcessResources resources;
        (void)becomesTrue(
            [&] { return (resources = now()) == expected; }, std::chrono::seconds(10));
        return resources;
    }

    /// Whether the process comes to hold no more than `bound`, which may have been counted while
    /// threads of earlier work were still ending.
    static bool settleWithin(const ProcessResources& bound)
    {
        return becomesTrue(
            [&] {
                const ProcessResources current = now();
                return current.descriptors <= bound.descriptors && current.threads <= bound.threads
                    && current.hasChildren <= bound.hasChildren;
            },
            std::chrono::seconds(10));
    }
};

inline void PrintTo(const ProcessResources& resources, std::ostream* stream)
{
    *stream << resources.descriptors << " descriptors, " << resources.threads << " threads, "
            << (resources.hasChildren ? "children" : "no child");
}
