#include "Commands/Commands.h"
#include "Errors/CommandLineError.h"
#include "Output/Json.h"
#include "Output/Table.h"
#include "Service/RunningService.h"

#include <array>
#include <cstdio>
#include <string>

namespace tdw::cli {

namespace {

/// "1 h 2 min 3 s", without leading zeros.
std::string durationText(std::chrono::milliseconds duration)
{
    const std::chrono::hh_mm_ss parts(std::chrono::floor<std::chrono::seconds>(duration));
    std::string text;
    if (parts.hours().count() > 0)
        text += std::to_string(parts.hours().count()) + " h ";
    if (!text.empty() || parts.minutes().count() > 0)
        text += std::to_string(parts.minutes().count()) + " min ";
    return text + std::to_string(parts.seconds().count()) + " s";
}

std::string mebibytes(std::uint64_t bytes)
{
    std::array<char, 32> text {};
    std::snprintf(text.data(), text.size(), "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
    return text.data();
}

Result<void> showStatus(const Session& session, const RunningService& running)
{
    const auto& process = running.process;
    if (session.arguments.has("--json")) {
        Dictionary status { { "Running", true } };
        if (process) {
            status.set("ProcessID", std::int64_t { process->identifier });
            status.set("Uptime", std::chrono::duration<double>(process->uptime).count());
            status.set("ResidentMemory", process->residentBytes);
        }
        return session.console.print(jsonLine(status));
    }
    Table table;
    table.addRow({ { "Service", Colour::Dim }, { "running", Colour::Green } });
    const auto addRow = [&](const char* label, std::string text) {
        table.addRow({ { label, Colour::Dim }, { std::move(text) } });
    };
    addRow("Process", process ? std::to_string(process->identifier) : "not known: systemd has it");
    if (process) {
        addRow("Running for", durationText(process->uptime));
        addRow("Memory", mebibytes(process->residentBytes));
    }
    return session.console.print(table.text(session.console.outputColours()));
}

Error noService()
{
    return commandLineError({ .status = ExitStatus::ServiceUnavailable,
        .reason = "No service runs.",
        .advice = "There is nothing to do about it: the next request starts one." });
}

Result<void> reportStop(const Session& session, bool wasThere)
{
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(Dictionary { { "Stopped", wasThere } }));
    return session.console.print(wasThere ? "The service has ended.\n" : "No service ran.\n");
}

} // namespace

Result<void> serviceCommand(const Session& session)
{
    const auto running = TDW_TRY(findRunningService());
    if (session.arguments.words.front() == "status")
        return running ? showStatus(session, *running) : noService();
    if (running)
        TDW_TRY(stop(*running));
    return reportStop(session, running.has_value());
}

} // namespace tdw::cli
