#include "CommandLine/Help.h"
#include "Commands/Commands.h"

namespace tdw::cli {

Result<void> helpCommand(const CommandContext& context)
{
    const auto& words = context.arguments.words;
    if (words.empty())
        return context.console.print(overviewText());
    const Command* command = findCommand(words.front());
    if (!command)
        return unknownCommandError(words.front());
    return context.console.print(commandHelpText(*command));
}

} // namespace tdw::cli
