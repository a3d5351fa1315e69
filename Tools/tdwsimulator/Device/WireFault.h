#pragma once

#include "Model/Fault.h"
#include "Platform/Values/Data.h"

#include <chrono>
#include <cstddef>
#include <optional>

namespace tdw::simulator {

/// What faults need to know of a protocol's frames: each begins with a header that begins with
/// the 32-bit length.
struct FrameShape {
    std::size_t headerSize = 4;
    bool isBigEndian = true;
};

/// How an encoded answer goes out.
struct FaultedReply {
    enum class After {
        Continue,
        Close,
        /// Keep the connection open and answer nothing any more.
        Ignore,
    };

    Data bytes {};
    After after = After::Continue;
    std::chrono::milliseconds delay { 0 };
};

/// Applies those faults that strike an answer's bytes, whatever they say. Other faults leave the
/// answer as it is.
FaultedReply applyFault(const std::optional<Fault>& fault, Data answer, FrameShape shape);

} // namespace tdw::simulator
