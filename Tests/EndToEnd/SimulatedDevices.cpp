#include "EndToEnd/SimulatedDevices.h"

#include "EndToEnd/ToolRun.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/System/LocalSocket.h"
#include "Platform/Values/PropertyList.h"
#include "Support/Testing.h"

using namespace tdw;

std::optional<Value> ServerAnswer::operator[](std::string_view key) const
{
    const Value* value = payload ? payload->find(key) : nullptr;
    return value ? std::optional(*value) : std::nullopt;
}

std::vector<Error> ServerAnswer::warnings() const
{
    std::vector<Error> result;
    if (const auto warnings = (*this)[kTDWResponseWarningsKey]) {
        for (const Value& warning : *warnings->asArray())
            result.push_back(TDWErrorParse(warning));
    }
    return result;
}

SimulatedDevices::SimulatedDevices(std::string_view scenario)
    : SimulatorProcess(scenario)
    , m_control(*connectToLocalSocket(directory() / "control"))
{
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + multiplexer().string()).c_str(), 1);
}

SimulatedDevices::~SimulatedDevices()
{
    unsetenv("USBMUXD_SOCKET_ADDRESS");
}

std::string SimulatedDevices::control(std::string_view request) const
{
    const std::string line = std::string(request) + "\n";
    EXPECT_TRUE(writeToDescriptor(m_control.descriptor(), bytesOf(line)));
    std::string answer = readLine(m_control.descriptor());
    EXPECT_NE(answer.find("\"ok\":true"), std::string::npos) << request << " -> " << answer;
    return answer;
}

std::string SimulatedDevices::control(const std::string& command,
    std::initializer_list<std::pair<const char*, std::string>> members) const
{
    std::string request = R"({"command":")" + command + '"';
    for (const auto& [name, text] : members)
        request += std::string(",\"") + name + R"(":")" + text + '"';
    return control(request + "}");
}

void SimulatedDevices::attach(const std::string& device, const std::string& connection) const
{
    control("attach", { { "device", device }, { "connection", connection } });
}

void SimulatedDevices::detach(const std::string& device) const
{
    control("detach", { { "device", device } });
}

void SimulatedDevices::inject(const std::string& members) const
{
    control(R"({"command":"inject-fault",)" + members + "}");
}

std::string SimulatedDevices::log(const std::string& members) const
{
    return control(R"({"command":"log",)" + members + "}");
}

void SimulatedDevices::clearFaults() const
{
    control(R"({"command":"clear-fault"})");
}

ServerAnswer SimulatedDevices::run(const std::string& server, std::vector<std::string> arguments)
{
    const auto start = std::chrono::steady_clock::now();
    const auto run = runToEnd(kBuild / "libexec/tidewell" / server, std::move(arguments));
    ServerAnswer answer { .output = run.output,
        .standardError = run.standardError,
        .status = run.termination.status,
        .duration = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start) };
    // One document and nothing else: the decoder refuses a second one, or anything after it.
    if (const auto envelope = decodePropertyList(bytesOf(run.output))) {
        answer.payload = TDWResponseUnwrap(*envelope, answer.error);
        if (const Value* record = envelope->asDictionary()->find(kTDWResponseDeviceIDKey))
            answer.deviceID = *record;
    }
    return answer;
}
