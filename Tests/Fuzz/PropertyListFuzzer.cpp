#include "Fuzz.h"
#include "Platform/Values/PropertyList.h"

/// Any bytes decode or are refused, and what decodes can be written and read again.
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
}
