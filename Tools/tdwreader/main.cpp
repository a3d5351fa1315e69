#include "DeviceReader.h"
#include "Platform/System/FileHandle.h"
#include "Platform/Values/PropertyList.h"
#include "Recording/Reading.h"
#include "Server/TDWServerImplementation.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

namespace {

namespace keys = tdw::simulator::reading;

int say(const tdw::Dictionary& reading)
{
    const auto bytes = tdw::encodeBinaryPropertyList(reading);
    return bytes && tdw::writeToDescriptor(STDOUT_FILENO, *bytes) ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

/// Reads for `tdwsimulator record`: `tdwreader` lists the devices, `tdwreader UDID [--wallpaper]`
/// reads one.
int main(int argc, char** argv)
{
    // The simulator sets the bounds, and nothing is left to read for once it has gone.
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    TDWServerSetTimeoutInterval(-1);
    TDWServerInitialize();
    const bool withWallpaper = argc > 2 && std::string_view(argv[2]) == keys::kWithWallpaper;
    using WithWallpaper = tdw::DeviceReader::WithWallpaper;
    tdw::DeviceReader reader(argc > 1 ? argv[1] : "");
    const auto reading = argc > 1
        ? reader.read(withWallpaper ? WithWallpaper::Yes : WithWallpaper::No)
        : tdw::connectedDevices();
    // Freeing what is open can wait for the device for half a minute.
    _exit(say(reading ? *reading
                      : tdw::Dictionary { { keys::kFailure, reading.error().failureReason() } }));
}
