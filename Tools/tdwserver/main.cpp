#include "Interfaces/TDWServer.h"
#include "Server/TDWBatteryServer.h"
#include "Server/TDWCompanionServer.h"
#include "Server/TDWConfigServer.h"
#include "Server/TDWDeviceInfoServer.h"
#include "Server/TDWDeviceListServer.h"
#include "Server/TDWEventsServer.h"
#include "Server/TDWPairingServer.h"
#include "Server/TDWServerImplementation.h"
#include "Server/TDWWallpaperServer.h"
#include "Support/TDWErrorKinds.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace {

struct EntryPoint {
    TDWServer name;
    int (*main)(int argumentCount, char** arguments) = nullptr;
};

int listDevices(int, char**)
{
    return TDWDeviceListServerMain();
}

int streamEvents(int, char**)
{
    TDWEventsServerMain();
}

/// Looked up once per process, and not set up before: the names are constants of other files.
EntryPoint entryPointNamed(TDWServer name)
{
    const EntryPoint entryPoints[] = {
        { kTidewellServerList, &listDevices },
        { kTidewellServerInfo, &TDWDeviceInfoServerMain },
        { kTidewellServerConfig, &TDWConfigServerMain },
        { kTidewellServerBattery, &TDWBatteryServerMain },
        { kTidewellServerCompanion, &TDWCompanionServerMain },
        { kTidewellServerCompanionBattery, &TDWCompanionBatteryServerMain },
        { kTidewellServerWallpaper, &TDWWallpaperServerMain },
        { kTidewellServerPairing, &TDWPairingServerMain },
        { kTidewellServerEvents, &streamEvents },
    };
    const auto* found = std::find_if(std::begin(entryPoints), std::end(entryPoints),
        [name](const EntryPoint& entry) { return entry.name == name; });
    return found == std::end(entryPoints) ? EntryPoint {} : *found;
}

/// A standard stream that is closed would be given to the next descriptor that is opened: the
/// envelope must not end up in a connection to a device.
void occupyStandardStreams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0)
            (void)open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const char* name = TDWServerName();
    if (!name)
        return tdw::kServerWithoutNameStatus;
    const EntryPoint entryPoint = entryPointNamed(name);
    if (!entryPoint.main)
        return tdw::kUnknownServerNameStatus;
    occupyStandardStreams();
    return entryPoint.main(argc, argv);
}
