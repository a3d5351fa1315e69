#include "Device/WireFault.h"

#include <algorithm>

namespace tdw::simulator {

namespace {

/// Neither XML nor "bplist".
constexpr std::byte kGarbage { 0xa5 };

/// Keeps the header, so that the frame is well-formed up to its content.
Data withGarbage(Data answer, FrameShape shape)
{
    if (answer.size() <= shape.headerSize)
        return Data(64, kGarbage);
    std::fill(
        answer.begin() + static_cast<std::ptrdiff_t>(shape.headerSize), answer.end(), kGarbage);
    return answer;
}

Data oversized(Data answer, FrameShape shape)
{
    answer.resize(std::max(answer.size(), shape.headerSize));
    std::fill_n(answer.begin(), 4, std::byte { 0xff });
    answer[shape.isBigEndian ? 0 : 3] = std::byte { 0x7f };
    return answer;
}

} // namespace

FaultedReply applyFault(const std::optional<Fault>& fault, Data answer, FrameShape shape)
{
    using After = FaultedReply::After;
    if (!fault)
        return FaultedReply { .bytes = std::move(answer) };
    switch (fault->kind) {
    case FaultKind::Delay:
        return FaultedReply { .bytes = std::move(answer), .delay = fault->delay };
    case FaultKind::Hang:
        return FaultedReply { .after = After::Ignore };
    case FaultKind::Drop:
        return FaultedReply { .after = After::Close };
    case FaultKind::Truncate:
        answer.resize(std::min(answer.size(), fault->bytes.value_or(answer.size() / 2)));
        return FaultedReply { .bytes = std::move(answer), .after = After::Close };
    case FaultKind::Garbage:
        return FaultedReply { .bytes = withGarbage(std::move(answer), shape) };
    case FaultKind::Oversize:
        return FaultedReply { .bytes = oversized(std::move(answer), shape),
            .after = After::Ignore };
    case FaultKind::CloseAfterReply:
        return FaultedReply { .bytes = std::move(answer), .after = After::Close };
    default:
        return FaultedReply { .bytes = std::move(answer) };
    }
}

} // namespace tdw::simulator
