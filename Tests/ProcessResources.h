#pragma once

#include "Support/Testing.h"

#include <sys/wait.h>

#include <iterator>

/// What a process holds and must give back: counted before and after a piece of work.
struct ProcessResources {
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;
    bool hasChildren = false;

    static ProcessResources now()
    {
        const auto entries = [](const char* directory) {
            return std::distance(std::filesystem::directory_iterator(directory), {});
        };
        siginfo_t ignored {};
        const bool hasChildren = waitid(P_ALL, 0, &ignored, WEXITED | WNOHANG | WNOWAIT) == 0;
        return { entries("/proc/self/fd"), entries("/proc/self/task"), hasChildren };
    }

    /// Whether the process comes to hold no more than `bound`, which may have been counted while
    /// threads of earlier work were still ending. The system lists a thread for a moment after it
    /// was joined.
    static testing::AssertionResult settleWithin(const ProcessResources& bound)
    {
        ProcessResources current;
        const bool isWithin = becomesTrue([&] {
            current = now();
            return current.descriptors <= bound.descriptors && current.threads <= bound.threads
                && current.hasChildren <= bound.hasChildren;
        });
        return (isWithin ? testing::AssertionSuccess() : testing::AssertionFailure())
            << current.descriptors << " descriptors, " << current.threads << " threads, "
            << (current.hasChildren ? "children" : "no child");
    }
};
