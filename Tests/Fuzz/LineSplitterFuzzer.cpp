#include "Fuzz.h"
#include "Interfaces/TDWDeviceEvent.h"
#include "Support/LineSplitter.h"

#include <algorithm>

/// The first byte says in which pieces the rest arrives. Lines and newlines make up the bytes
/// again.
void fuzz(std::span<const std::byte> bytes)
{
    if (bytes.empty())
        return;
    const auto piece = std::to_integer<std::size_t>(bytes.front()) + 1;
    bytes = bytes.subspan(1);
    tdw::LineSplitter splitter;
    std::string joined;
    const auto take = [&joined](std::string_view line) {
        require(line.find('\n') == std::string_view::npos);
        joined.append(line) += '\n';
        // A line of an events server is exactly what its event prints as, or none.
        const auto event = tdw::parseDeviceEvent(line);
        require(!event || tdw::deviceEventText(*event) == line);
    };
    for (auto left = bytes; !left.empty(); left = left.subspan(std::min(piece, left.size()))) {
        splitter.append(left.first(std::min(piece, left.size())));
        // A reader may leave lines for later.
        for (std::size_t asked = 0; asked < piece; ++asked) {
            const auto line = splitter.next();
            if (!line)
                break;
            take(*line);
        }
    }
    while (const auto line = splitter.next())
        take(*line);
    if (const auto rest = splitter.rest())
        joined += *rest;
    require(joined == textOf(bytes));
}
