#include "Server/TDWServerImplementation.h"

#include "Interfaces/StandardOutput.h"
#include "Interfaces/TDWResponse.h"
#include "Server/ServerProcess.h"
#include "Support/Diagnostics.h"
#include "Support/TDWErrorKinds.h"

#include <unistd.h>
#include <usbmuxd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>

double gTDWServerTimeoutInterval = 10.0;
constinit tdw::WorkItem gTDWServerTimeoutBlock;

namespace {

constexpr double kNanosecondsPerSecond = 1'000'000'000.0;
constexpr int kConnectionTypeArgument = 2;

bool timeoutIsCancelled()
{
    return gTDWServerTimeoutBlock.isCancelled();
}

void handleTimeout()
{
    if (timeoutIsCancelled())
        return;
    const auto error = tdw::serverTimeoutError();
    // Held until the process has ended, so that no answer can follow the clock's.
    const tdw::StandardOutputGuard output(tdw::kWriterBound);
    if (timeoutIsCancelled() || (output.isHeld() && output.hasAnswer()))
        return;
    const int status = output.isHeld() ? TDWSerializeErrorResponse(error) : EXIT_FAILURE;
    // The main thread may be anywhere inside the device library: nothing may be torn down under it.
    _exit(status);
}

std::chrono::nanoseconds timeoutInterval()
{
    const double nanoseconds = gTDWServerTimeoutInterval * kNanosecondsPerSecond;
    constexpr auto kLongest = std::chrono::nanoseconds::max() / 2;
    if (nanoseconds >= static_cast<double>(kLongest.count()))
        return kLongest;
    return std::chrono::nanoseconds(static_cast<std::int64_t>(nanoseconds));
}

} // namespace

const char* TDWServerName()
{
    static const char* const kName
        = *program_invocation_short_name != '\0' ? program_invocation_short_name : nullptr;
    return kName;
}

void TDWServerSetTimeoutInterval(double seconds)
{
    gTDWServerTimeoutInterval = seconds;
}

void _TDWServerStartTimeoutClock()
{
    if (gTDWServerTimeoutBlock)
        tdw::reportError("Invoked timeout clock start function more than once in the lifetime of "
                         "the process!");
    if (gTDWServerTimeoutInterval < 0)
        return;
    gTDWServerTimeoutBlock = tdw::WorkItem(handleTimeout);
    tdw::serverClockQueue().after(timeoutInterval(), gTDWServerTimeoutBlock);
}

void TDWServerStopTimeoutClock()
{
    if (!timeoutIsCancelled())
        gTDWServerTimeoutBlock.cancel();
}

enum idevice_options TDWParseDeviceOptionsFromArguments(int argumentCount, char** arguments)
{
    constexpr auto kBoth
        = static_cast<enum idevice_options>(IDEVICE_LOOKUP_USBMUX | IDEVICE_LOOKUP_NETWORK);
    if (argumentCount <= kConnectionTypeArgument)
        return kBoth;
    // The text is a number by agreement, and anything else means both.
    // NOLINTNEXTLINE(bugprone-*,cert-err34-c): a text without digits is 0 here, as meant
    switch (std::atoll(arguments[kConnectionTypeArgument])) {
    case 1:
        return IDEVICE_LOOKUP_USBMUX;
    case 2:
        return IDEVICE_LOOKUP_NETWORK;
    default:
        return kBoth;
    }
}

void TDWServerInitialize()
{
    tdw::prepareServerProcess();
    _TDWServerStartTimeoutClock();
    libusbmuxd_set_debug_level(TDWDebugLevel());
    idevice_set_debug_level(TDWDebugLevel());
    // The clock's thread, which runs by now, reads it.
    std::atomic_ref(__gTDWServerInitialized).store(true);
}
