#include "Commands/Commands.h"
#include "Errors/CommandLineError.h"
#include "Platform/Values/Value.h"
#include "Requests/RunningService.h"
#include "Terminal/Table.h"
#include "Text/Json.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <string>

namespace tdw::cli {

namespace {

/// "1 h 2 min 3 s", without leading zeros.
std::string durationText(std::chrono::seconds duration)
{
    const std::chrono::hh_mm_ss parts(duration);
    std::string text;
    if (parts.hours().count() > 0)
        text += std::to_string(parts.hours().count()) + " h ";
    if (!text.empty() || parts.minutes().count() > 0)
        text += std::to_string(parts.minutes().count()) + " min ";
    return text + std::to_string(parts.seconds().count()) + " s";
}

std::string mebibytes(std::int64_t bytes)
{
    std::array<char, 32> text {};
    std::snprintf(text.data(), text.size(), "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
    return text.data();
}

Result<void> showStatus(const CommandContext& context, const RunningService& running)
{
    const auto& status = running.status;
    if (context.arguments.has("--json")) {
        Dictionary answer { { "Running", true } };
        if (status) {
            answer.set("ProcessID", std::int64_t { status->process });
            answer.set("Uptime", status->uptimeSeconds);
            answer.set("ResidentMemory", status->residentBytes);
            answer.set("Requests", status->requests);
            answer.set("Subscribers", status->subscribers);
            answer.set("Multiplexer", status->multiplexer);
            answer.set("Version", status->version);
        }
        return context.console.print(jsonLine(answer));
    }
    Table table;
    table.addRow({ { "Service", Colour::Dim }, { "running", Colour::Green } });
    const auto addRow = [&](const char* label, std::string text) {
        table.addRow({ { label, Colour::Dim }, { std::move(text) } });
    };
    if (status) {
        addRow("Process", std::to_string(status->process));
        addRow("Running for", durationText(std::chrono::seconds(status->uptimeSeconds)));
        addRow("Memory", mebibytes(status->residentBytes));
        addRow("Requests", std::to_string(status->requests));
        addRow("Subscribers", std::to_string(status->subscribers));
        addRow("Multiplexer", status->multiplexer);
        addRow("Version", status->version);
    }
    return context.console.print(table.text(context.console.outputColours()));
}

Error noService()
{
    return commandLineError({ .status = ExitStatus::ServiceUnavailable,
        .reason = "No service runs.",
        .advice = "No action is needed; the next request starts one." });
}

Result<void> reportStop(const CommandContext& context, bool wasThere)
{
    if (context.arguments.has("--json"))
        return context.console.print(jsonLine(Dictionary { { "Stopped", wasThere } }));
    return context.console.print(wasThere ? "The service has ended.\n" : "No service ran.\n");
}

} // namespace

Result<void> serviceCommand(const CommandContext& context)
{
    if (context.arguments.words.front() == "stop")
        return reportStop(context, TDW_TRY(stopService()));
    const auto running = TDW_TRY(findRunningService());
    return running ? showStatus(context, *running) : noService();
}

} // namespace tdw::cli
