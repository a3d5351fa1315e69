#include "Recording/ReaderRun.h"

#include "Model/SimulatorError.h"
#include "Platform/System/FileHandle.h"
#include "Platform/System/Process.h"
#include "Platform/Values/PropertyList.h"
#include "Recording/Reading.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string_view>

namespace tdw::simulator {

namespace {

using Clock = std::chrono::steady_clock;

/// More than any device tells.
constexpr std::size_t kLongestAnswer = std::size_t { 32 } << 20U;

Result<std::string> readerExecutable()
{
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return Error::posix(error.value(), "Cannot read /proc/self/exe");
    return (executable.parent_path().parent_path() / TDWSIMULATOR_READER).string();
}

/// What comes over the reader's two streams.
struct ReaderOutput {
    std::string answer;
    std::string diagnostics;
    std::string stage;
    bool isComplete = false;

    /// Takes what is there; says whether there may be more.
    static bool take(int descriptor, std::string& text)
    {
        std::array<char, 65536> buffer {};
        const ssize_t length = ::read(descriptor, buffer.data(), buffer.size());
        if (length > 0)
            text.append(buffer.data(), static_cast<std::size_t>(length));
        return length > 0 || (length < 0 && errno == EINTR);
    }

    /// Moves on to the last step that is announced; says whether there is a new one.
    bool followStages()
    {
        bool isNew = false;
        for (auto end = diagnostics.find('\n'); end != std::string::npos;
             end = diagnostics.find('\n')) {
            const std::string line = diagnostics.substr(0, end);
            diagnostics.erase(0, end + 1);
            if (line.starts_with(reading::kStage)) {
                stage = line.substr(reading::kStage.size());
                isNew = true;
            }
        }
        return isNew;
    }

    /// Reads until both streams end, or a step takes too long.
    void readToEnd(int answerDescriptor, int errorDescriptor, std::chrono::milliseconds bound)
    {
        auto deadline = Clock::now() + bound;
        std::array streams { pollfd { answerDescriptor, POLLIN, 0 },
            pollfd { errorDescriptor, POLLIN, 0 } };
        const std::array texts { &answer, &diagnostics };
        while (streams[0].fd >= 0 || streams[1].fd >= 0) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0 || answer.size() > kLongestAnswer)
                return;
            if (::poll(streams.data(), streams.size(), static_cast<int>(left.count())) <= 0)
                continue;
            for (std::size_t i = 0; i < streams.size(); ++i) {
                if (streams[i].revents != 0 && !take(streams[i].fd, *texts[i]))
                    streams[i].fd = -1;
            }
            if (followStages())
                deadline = Clock::now() + bound;
        }
        isComplete = true;
    }
};

} // namespace

Result<Dictionary> runReader(
    const std::vector<std::string>& arguments, std::chrono::milliseconds bound)
{
    Pipe answer = TDW_TRY(Pipe::create());
    Pipe diagnostics = TDW_TRY(Pipe::create());
    LaunchOptions launch;
    launch.executable = TDW_TRY(readerExecutable());
    launch.arguments = arguments;
    launch.standardOutput = answer.writer.descriptor();
    launch.standardError = diagnostics.writer.descriptor();
    Process process = TDW_TRY(Process::launch(launch));
    answer.writer.close();
    diagnostics.writer.close();

    ReaderOutput output;
    output.readToEnd(answer.reader.descriptor(), diagnostics.reader.descriptor(), bound);
    const std::string who = arguments.empty() ? "the multiplexer" : arguments.front();
    if (!output.isComplete) {
        process.sendSignal(SIGKILL);
        return simulatorError(who + " was silent for "
            + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(bound).count())
            + " s at " + output.stage);
    }
    const Termination termination = process.waitUntilExit();
    const auto reading = decodePropertyList(std::as_bytes(std::span(output.answer)));
    const Dictionary* values = reading ? reading->asDictionary() : nullptr;
    if (!values)
        return simulatorError("tdwreader ended "
            + std::string(termination.bySignal ? "by signal " : "with status ")
            + std::to_string(termination.status) + " at " + output.stage);
    if (const std::string* failure = values->stringAt(reading::kFailure))
        return simulatorError(*failure);
    return *values;
}

} // namespace tdw::simulator
