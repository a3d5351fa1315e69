#include "Fuzz.h"
#include "Host/ServerEnvelope.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Values/Value.h"

#include <algorithm>
#include <optional>

/// A server's exit status, then both of its streams with a NUL between them. Whatever they are,
/// they make an envelope that unwraps to a payload or an error.
void fuzz(std::span<const std::byte> bytes)
{
    if (bytes.empty())
        return;
    const auto status = std::to_integer<std::int32_t>(bytes.front());
    bytes = bytes.subspan(1);
    const auto middle = std::find(bytes.begin(), bytes.end(), std::byte { 0 });
    const tdw::Data output(bytes.begin(), middle);
    const tdw::Data standardError(middle == bytes.end() ? middle : middle + 1, bytes.end());
    const tdw::Value envelope = tdw::envelopeOfRun(
        "tdw_info", output, { .status = status }, [&] { return standardError; });
    std::optional<tdw::Error> error;
    const auto payload = TDWResponseUnwrap(envelope, error);
    require(payload.has_value() != error.has_value());
}
