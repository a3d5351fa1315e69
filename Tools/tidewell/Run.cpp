#include "Run.h"

#include "CommandLine/Arguments.h"
#include "CommandLine/CommandTable.h"
#include "CommandLine/Help.h"
#include "Commands/Commands.h"
#include "Errors/ErrorText.h"
#include "Errors/ExitStatus.h"
#include "Interfaces/TDWResponse.h"
#include "Interfaces/TidewellVersion.h"
#include "Output/Json.h"
#include "Service/RunningService.h"

namespace tdw::cli {

namespace {

Result<Arguments> parse(const std::vector<std::string>& texts)
{
    return checkArguments(TDW_TRY(splitArguments(texts)));
}

/// A service that looks at another multiplexer than the caller does would give an answer that is
/// right there and wrong here.
Requests::Road roadFor(const Arguments& arguments)
{
    const bool asksDevices = takesOption(*arguments.command, *findOption("--direct"));
    const bool isDirect = arguments.has("--direct") || (asksDevices && serviceHasOtherDevices());
    return isDirect ? Requests::Road::Direct : Requests::Road::Service;
}

Result<void> carryOut(const Arguments& arguments, const Console& console)
{
    if (arguments.has("--version"))
        return console.print("tidewell " + std::string(TidewellVersionString) + "\n");
    if (arguments.has("--help"))
        return console.print(
            arguments.command ? commandHelpText(*arguments.command) : overviewText());
    return arguments.command->function({ arguments, Requests(roadFor(arguments)), console });
}

} // namespace

int run(const std::vector<std::string>& texts, const Console& console)
{
    const auto arguments = parse(texts);
    const auto result = arguments ? carryOut(*arguments, console) : arguments.error();
    if (result)
        return static_cast<int>(ExitStatus::Success);

    // A reader that has seen enough is not told that it has.
    if (!isClosedOutput(result.error())) {
        const auto status = exitStatusOf(result.error());
        if (arguments && arguments->has("--json") && status != ExitStatus::OutputNotWritten)
            (void)console.print(jsonLine(TDWClientErrorResponse(result.error())));
        console.say(errorText(result.error(), console.errorColours()));
    }
    return static_cast<int>(exitStatusOf(result.error()));
}

} // namespace tdw::cli
