#include "CommandLine/Completion.h"
#include "Commands/Commands.h"

namespace tdw::cli {

Result<void> completionCommand(const Session& session)
{
    return session.console.print(completionScript(session.arguments.words.front()));
}

} // namespace tdw::cli
