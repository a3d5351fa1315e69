#include "Commands/DeviceRequest.h"

#include "Errors/CommandLineError.h"
#include "Output/Json.h"
#include "Platform/Text.h"

namespace tdw::cli {

Result<Value> requestFor(const Session& session, const DeviceRequest& request)
{
    auto payload = session.requests.send(request.server, request.arguments);
    if (!payload)
        return whileTrying(request.attempt, payload.error());
    return payload;
}

Result<void> reportDone(const Session& session, const Value& answer, const std::string& sentence)
{
    if (session.arguments.has("--json"))
        return session.console.print(jsonLine(answer));
    return session.console.print(withControlCharactersEscaped(sentence) + "\n");
}

} // namespace tdw::cli
