#include "Commands/Commands.h"
#include "Doctor/Doctor.h"
#include "Errors/CommandLineError.h"
#include "Text/Json.h"

namespace tdw::cli {

Result<void> doctorCommand(const CommandContext& context)
{
    const auto& words = context.arguments.words;
    const auto examined = TDW_TRY(examine(context.requests,
        words.empty() ? std::nullopt : std::optional(words.front()), context.trace));
    const Findings& findings = examined.findings;
    TDW_TRY(context.console.print(context.arguments.has("--json")
            ? jsonLine(findingsAnswer(findings))
            : findingsText(findings, context.console.outputColours())));
    const std::size_t failures = count(findings, Health::Failure);
    if (failures == 0)
        return {};
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = failures == 1 ? "1 check fails." : std::to_string(failures) + " checks fail.",
        .isAnswered = true });
}

} // namespace tdw::cli
