#include "Commands/Commands.h"
#include "Model/Json.h"
#include "Model/SimulatorError.h"
#include "Platform/System/LocalSocket.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

namespace tdw::simulator {

namespace {

/// Arguments that are text whatever they look like; others are JSON where they can be read as
/// JSON, and text where not.
constexpr std::array<std::string_view, 12> kTextArguments { "answer", "at", "connection", "device",
    "domain", "error", "fault", "key", "replyKey", "request", "trust", "watch" };

Result<Json> requestFromWords(const std::vector<std::string>& words)
{
    if (words.size() == 1 && words.front().starts_with("{"))
        return parseJson(words.front());
    Json request { { "command", words.front() } };
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::size_t equals = words[i].find('=');
        if (equals == std::string::npos || equals == 0)
            return simulatorError("\"" + words[i] + "\" is not of the form name=value");
        const std::string name = words[i].substr(0, equals);
        const std::string text = words[i].substr(equals + 1);
        const bool isText
            = std::find(kTextArguments.begin(), kTextArguments.end(), name) != kTextArguments.end();
        const auto json = isText ? Result<Json>(Json(text)) : parseJson(text);
        request[name] = json ? *json : Json(text);
    }
    return request;
}

Result<std::string> sendLine(const FileHandle& socket, const std::string& line)
{
    TDW_TRY(writeToDescriptor(socket.descriptor(), std::as_bytes(std::span(line))));
    std::string answer;
    std::array<char, 4096> buffer {};
    while (answer.empty() || answer.back() != '\n') {
        const ssize_t count = ::read(socket.descriptor(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return simulatorError("the simulator ended the connection without an answer");
        answer.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return answer;
}

} // namespace

Result<int> controlCommand(
    const std::optional<std::string>& socket, const std::vector<std::string>& words)
{
    const char* variable
        = std::getenv("TDWSIMULATOR_CONTROL"); // NOLINT(concurrency-mt-unsafe): one thread
    if (!socket && !variable)
        return simulatorError("TDWSIMULATOR_CONTROL is not set: name the control socket with "
                              "--socket, or run this under \"tdwsimulator run\"");
    const Json request = TDW_TRY(requestFromWords(words));
    const FileHandle connection
        = TDW_TRY(connectToLocalSocket(socket ? *socket : std::string(variable)));
    const std::string answer = TDW_TRY(sendLine(connection, jsonText(request) + "\n"));
    const Json json = TDW_TRY(parseJson(answer));
    const auto ok = json.find("ok");
    if (ok != json.end() && *ok == false && json.contains("error"))
        return simulatorError(
            json["error"].is_string() ? json["error"].get_ref<const std::string&>() : answer);
    TDW_TRY(writeToDescriptor(STDOUT_FILENO, std::as_bytes(std::span(answer))));
    return 0;
}

} // namespace tdw::simulator
