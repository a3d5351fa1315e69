#include "Fuzz.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Values/PropertyList.h"

/// Any bytes decode or are refused, and what decodes can be written and read again. As a server's
/// envelope it is a payload or an error, never both or neither.
void fuzz(std::span<const std::byte> bytes)
{
    const auto decoded = tdw::decodePropertyList(bytes);
    if (!decoded)
        return;
    (void)decoded->debugDescription();
    const auto encoded = tdw::encodeBinaryPropertyList(*decoded);
    require(encoded.hasValue());
    // Shared objects are written once for each use, and may then be too many for their bytes.
    require(encoded->size() > kSmallDocument || tdw::decodePropertyList(*encoded).hasValue());
    // Others are only complained about, which takes its time.
    if (!decoded->find("error") && !decoded->find("response"))
        return;
    std::optional<tdw::Error> error;
    const auto payload = TDWResponseUnwrap(*decoded, error);
    require(payload.has_value() != error.has_value());
    if (error)
        (void)error->debugDescription();
}
