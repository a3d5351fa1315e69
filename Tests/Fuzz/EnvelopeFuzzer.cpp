#include "Interfaces/TDWResponse.h"
#include "Platform/PropertyList.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

/// Whatever a server wrote, unwrapping it gives a payload or an error, never both or neither.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto decoded = tdw::decodePropertyList(std::as_bytes(std::span(data, size)));
    if (!decoded)
        return 0;
    std::optional<tdw::Error> error;
    const auto payload = TDWResponseUnwrap(*decoded, error);
    if (payload.has_value() == error.has_value())
        std::abort();
    if (error)
        (void)error->debugDescription();
    return 0;
}
