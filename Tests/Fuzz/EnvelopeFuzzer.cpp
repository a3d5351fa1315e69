#include "Fuzz.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Values/PropertyList.h"

/// Whatever a server wrote, unwrapping it gives a payload or an error, never both or neither.
void fuzz(std::span<const std::byte> bytes)
{
    const auto decoded = tdw::decodePropertyList(bytes);
    if (!decoded)
        return;
    std::optional<tdw::Error> error;
    const auto payload = TDWResponseUnwrap(*decoded, error);
    require(payload.has_value() != error.has_value());
    if (error)
        (void)error->debugDescription();
}
