#include "Fuzz.h"
#include "Multiplexer/MultiplexerConversation.h"

#include <algorithm>

/// The first byte says in which pieces the reply arrives; the pieces make no difference.
void fuzz(std::span<const std::byte> bytes)
{
    if (bytes.empty())
        return;
    const auto piece = std::to_integer<std::size_t>(bytes.front()) + 1;
    bytes = bytes.subspan(1);
    tdw::cli::MultiplexerReply whole;
    whole.append(bytes);
    if (bytes.size() < 64 * 1024) {
        tdw::cli::MultiplexerReply pieces;
        for (auto left = bytes; !left.empty(); left = left.subspan(std::min(piece, left.size())))
            pieces.append(left.first(std::min(piece, left.size())));
        if (whole.state() == tdw::cli::MultiplexerReply::State::Complete)
            require(pieces.state() == whole.state() && pieces.body().size() == whole.body().size());
    }
    (void)tdw::cli::udidsIn(whole.body());
    (void)tdw::cli::isUsablePairRecord(whole.body());
}
