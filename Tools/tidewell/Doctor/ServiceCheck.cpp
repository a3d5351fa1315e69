#include "Client/ServiceMessages.h"
#include "Doctor/ComputerChecks.h"
#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Interfaces/TidewellVersion.h"
#include "Multiplexer/MultiplexerAddress.h"
#include "Platform/Messages/ServiceStart.h"
#include "Requests/RequestErrors.h"
#include "Requests/RunningService.h"

#include <algorithm>
#include <cerrno>
#include <optional>

namespace tdw::cli {

namespace {

Finding failed(const Error& error)
{
    Finding finding { .check = "service", .health = Health::Failure };
    finding.error = error;
    for (const Error& link : causeChain(error)) {
        if (!finding.text.empty())
            finding.text += ": ";
        finding.text += link.failureReason();
    }
    const bool isMissing = std::ranges::any_of(causeChain(error), [](const Error& link) {
        return link.domain() == kPosixErrorDomain && link.code() == ENOENT;
    });
    finding.remedy = isMissing ? "The installation of Tidewell is incomplete; install it again."
                               : adviceFor(error);
    return finding;
}

/// The service that runs; where none does, one that is started, as a request would.
Result<std::optional<RunningService>> findOrStart(bool& isStarted)
{
    auto running = TDW_TRY(findRunningService());
    if (running)
        return running;
    isStarted = true;
    const auto connection
        = connectToService(tidewellService(), StartPolicy::Start, [] { return false; });
    if (!connection)
        return serviceNotReached(connection.error());
    return findRunningService();
}

} // namespace

ServiceCheck checkService()
{
    bool isStarted = false;
    const auto running = findOrStart(isStarted);
    if (!running)
        return { .findings = { failed(running.error()) } };
    Finding finding { .check = "service" };
    if (!*running) {
        finding.health = Health::Failure;
        finding.text = "ended as soon as it was started";
        finding.remedy = "journalctl --user -u tidewell-service shows why.";
        return { .findings = { finding } };
    }
    const auto& status = (*running)->status;
    const std::string version = status ? status->version : std::string();
    finding.text = (isStarted ? "did not run, and starts: version " : "runs: version ")
        + (version.empty() ? "unknown" : version);
    finding.details.set("Version", version);
    finding.details.set("WasRunning", !isStarted);
    if (version != TidewellVersionString) {
        finding.health = Health::Warning;
        finding.text += ", while this command is version " + std::string(TidewellVersionString);
        finding.remedy = "tidewell service stop";
    }
    ServiceCheck check { .findings = { finding }, .isUsable = true };
    if (status) {
        const bool isOther = hasOtherDevices(**running);
        Finding multiplexer { .check = "service-multiplexer" };
        multiplexer.details.set("Address", status->multiplexer);
        multiplexer.text = status->multiplexer;
        if (isOther) {
            check.isUsable = false;
            multiplexer.health = Health::Warning;
            multiplexer.text += ", while this command asks " + multiplexerAddress().description()
                + ", and goes around the service";
            multiplexer.remedy = "\"tidewell service stop\" here, or the same "
                                 "USBMUXD_SOCKET_ADDRESS for both";
        }
        check.findings.push_back(std::move(multiplexer));
    }
    return check;
}

} // namespace tdw::cli
