#pragma once

// What nearly every test needs: the framework, and what tests read files, start processes and wait
// with.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

/// The matchers that tests name without more words; all of `testing` would bring a second `Value`.
namespace matchers {

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

} // namespace matchers

inline std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

inline std::string textOf(std::span<const std::byte> bytes)
{
    return { reinterpret_cast<const char*>(bytes.data()), bytes.size() };
}

inline std::string contentsOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return { std::istreambuf_iterator(stream), {} };
}

/// Waits for something that cannot be waited for otherwise, within a bound that no working system
/// needs.
/// @return whether it happened
bool becomesTrue(const auto& condition, std::chrono::seconds bound = std::chrono::seconds(60))
{
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        // Looking is work too, which what is waited for could do.
        (void)poll(nullptr, 0, 2);
    }
    return true;
}

/// The next line that comes, without its end; what has come of it where the rest does not come.
inline std::string readLine(int descriptor)
{
    std::string line;
    pollfd entry { descriptor, POLLIN, 0 };
    for (char next = 0; poll(&entry, 1, 30'000) == 1 && read(descriptor, &next, 1) == 1;) {
        if (next == '\n')
            break;
        line += next;
    }
    return line;
}
