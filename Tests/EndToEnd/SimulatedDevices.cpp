#include "EndToEnd/SimulatedDevices.h"

#include "Interfaces/TDWResponse.h"
#include "Platform/Values/PropertyList.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

using namespace tdw;

namespace {

const std::filesystem::path kBuild = TIDEWELL_BUILD_DIR;

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

std::string textOf(const Data& data)
{
    return { reinterpret_cast<const char*>(data.data()), data.size() };
}

/// Reads up to and without the next line end.
std::string readLine(int descriptor)
{
    std::string line;
    char character = 0;
    while (read(descriptor, &character, 1) == 1 && character != '\n')
        line += character;
    return line;
}

FileHandle connectTo(const std::filesystem::path& path)
{
    FileHandle connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(connection.descriptor(), reinterpret_cast<const sockaddr*>(&address),
                  sizeof address),
        0)
        << path;
    return connection;
}

} // namespace

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
{
    std::string name = std::filesystem::temp_directory_path() / "tidewell-test-XXXXXX";
    m_directory = mkdtemp(name.data());

    LaunchOptions options;
    options.executable = kBuild / "bin/tdwsimulator";
    options.arguments = { "serve", "--directory", m_directory };
    if (!scenario.empty()) {
        std::ofstream(m_directory / "scenario.json") << scenario;
        options.arguments.insert(
            options.arguments.end(), { "--scenario", m_directory / "scenario.json" });
    }
    Pipe output = *Pipe::create();
    options.standardOutput = output.writer.descriptor();
    auto simulator = Process::launch(options);
    EXPECT_TRUE(simulator) << simulator.error().failureReason();
    m_simulator = *std::move(simulator);
    output.writer.close();
    EXPECT_NE(readLine(output.reader.descriptor()), "") << "the simulator says when it is ready";

    m_control = connectTo(m_directory / "control");
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + (m_directory / "usbmuxd").string()).c_str(), 1);
}

SimulatedDevices::~SimulatedDevices()
{
    unsetenv("USBMUXD_SOCKET_ADDRESS");
    m_simulator->sendSignal(SIGTERM);
    m_simulator->waitUntilExit();
    std::filesystem::remove_all(m_directory);
}

std::string SimulatedDevices::control(std::string_view request) const
{
    const std::string line = std::string(request) + "\n";
    EXPECT_TRUE(writeToDescriptor(m_control.descriptor(), bytesOf(line)));
    std::string answer = readLine(m_control.descriptor());
    EXPECT_NE(answer.find("\"ok\":true"), std::string::npos) << request << " -> " << answer;
    return answer;
}

ServerAnswer SimulatedDevices::run(const std::string& server, std::vector<std::string> arguments)
{
    ServerRunOptions options;
    options.executable = kBuild / "libexec/tidewell" / server;
    options.serverName = server;
    options.arguments = std::move(arguments);
    options.timeout = std::chrono::seconds(60);
    const auto start = std::chrono::steady_clock::now();
    auto outcome = runServer(std::move(options));
    ServerAnswer answer;
    EXPECT_TRUE(outcome) << outcome.error().failureReason();
    if (!outcome)
        return answer;
    EXPECT_FALSE(outcome->timedOut) << server << " did not end by itself";
    answer.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    answer.status = outcome->termination.status;
    answer.output = textOf(outcome->output);
    answer.standardError = textOf(outcome->standardError);
    // One document and nothing else: the decoder refuses a second one, or anything after it.
    if (const auto envelope = decodePropertyList(outcome->output)) {
        answer.payload = TDWResponseUnwrap(*envelope, answer.error);
        if (const Value* record = envelope->asDictionary()->find(kTDWResponseDeviceIDKey))
            answer.deviceID = *record;
    }
    return answer;
}

std::string SimulatedDevices::outputOf(
    const std::string& program, std::vector<std::string> arguments)
{
    ServerRunOptions options;
    options.executable = program;
    options.serverName = program;
    options.arguments = std::move(arguments);
    options.timeout = std::chrono::seconds(60);
    const auto outcome = runServer(std::move(options));
    EXPECT_TRUE(outcome) << program;
    return outcome ? textOf(outcome->output) : std::string();
}
