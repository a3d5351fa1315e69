#include "CommandLine/Help.h"
#include "Commands/Commands.h"

namespace tdw::cli {

Result<void> helpCommand(const Session& session)
{
    const auto& words = session.arguments.words;
    if (words.empty())
        return session.console.print(overviewText());
    const Command* command = findCommand(words.front());
    if (!command)
        return unknownCommandError(words.front());
    return session.console.print(commandHelpText(*command));
}

} // namespace tdw::cli
