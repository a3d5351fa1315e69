#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <chrono>
#include <string>
#include <vector>

namespace tdw::simulator {

/// Runs `tdwreader` to its end; `Recording/Reading.h` says what it answers.
///
/// The device library has no time-outs, so the reader is killed where one step of its reading takes
/// too long.
/// @param arguments none for the list of devices
/// @param bound how long one step may take
/// Errors: a sentence: what the reader says, the step that took too long, or its end
/// without an answer.
Result<Dictionary> runReader(
    const std::vector<std::string>& arguments, std::chrono::milliseconds bound);

} // namespace tdw::simulator
