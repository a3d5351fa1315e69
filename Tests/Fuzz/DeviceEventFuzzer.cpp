#include "Fuzz.h"
#include "Interfaces/TDWDeviceEvent.h"
#include "Support/LineSplitter.h"

/// Lines of an events server: each is exactly what its event prints as, or none.
void fuzz(std::span<const std::byte> bytes)
{
    tdw::LineSplitter splitter;
    splitter.append(bytes);
    while (const auto line = splitter.next()) {
        if (const auto event = tdw::parseDeviceEvent(*line))
            require(tdw::deviceEventText(*event) == *line);
    }
}
