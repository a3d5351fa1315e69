#include "Server/PairRecord.h"

#include "Platform/Values/PropertyList.h"
#include "Platform/Values/Value.h"
#include "Server/DeviceHandles.h"

#include <usbmuxd.h>

#include <cstdint>
#include <span>

namespace tdw {

namespace {

/// The multiplexer's answer where it has no record.
constexpr int kNoRecord = -2;

/// A release of the library gives a multiplexer that is not there the same code as a record that is
/// not there.
bool multiplexerAnswers()
{
    LibraryText identifier;
    return usbmuxd_read_buid(out(identifier)) == 0;
}

} // namespace

std::optional<bool> hasPairRecord(const char* udid)
{
    LibraryText record;
    std::uint32_t size = 0;
    const int code = usbmuxd_read_pair_record(udid, out(record), &size);
    if (code == kNoRecord && multiplexerAnswers())
        return false;
    if (code != 0)
        return std::nullopt;
    const auto content
        = decodePropertyList(std::as_bytes(std::span<const char>(record.get(), size)));
    return content && content->stringAt("HostID");
}

} // namespace tdw
