#include "Platform/PropertyList.h"

#include <cstdint>
#include <cstdlib>

/// Any bytes decode or are refused, and what decodes can be written and read again unchanged.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto decoded = tdw::decodePropertyList(std::as_bytes(std::span(data, size)));
    if (!decoded)
        return 0;
    (void)decoded->debugDescription();
    // A date beyond what the encoder takes is refused, and so a second round is not always had.
    const auto encoded = tdw::encodeBinaryPropertyList(*decoded);
    if (encoded && !tdw::decodePropertyList(*encoded))
        std::abort();
    return 0;
}
