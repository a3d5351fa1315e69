#include "Host/TDWServerInvocation.h"

#include "Host/RequestRunner.h"
#include "Host/ServerEnvelope.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/System/Trust.h"
#include "Support/TDWErrorKinds.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

using tdw::Data;
using tdw::Error;
using tdw::Value;

namespace {

/// What stands in a pipe now, without waiting for more.
Data availableBytes(const tdw::FileHandle& reader)
{
    Data result;
    std::array<std::byte, 4096> chunk {};
    pollfd entry { reader.descriptor(), POLLIN, 0 };
    while (reader.isOpen() && poll(&entry, 1, 0) > 0) {
        const ssize_t count = ::read(reader.descriptor(), chunk.data(), chunk.size());
        if (count <= 0)
            break;
        result.insert(result.end(), chunk.begin(), chunk.begin() + count);
    }
    return result;
}

} // namespace

std::optional<std::string> TDWValidateServerExecutable(
    const std::string& serverName, const tdw::Bundle& bundle, std::optional<Error>& outError)
{
    const auto path = bundle.pathForAuxiliaryExecutable(serverName);
    if (!path) {
        outError = tdw::serverNotFoundError(serverName,
            Error(tdw::kCocoaErrorDomain, EINVAL,
                "A server's name is a plain file name: not empty, not \".\" or \"..\", without a "
                "slash or a NUL."));
        return std::nullopt;
    }
    if (access(path->c_str(), F_OK) != 0) {
        outError = tdw::serverNotFoundError(
            serverName, Error::posix(errno, "Cannot find \"" + *path + "\""));
        return std::nullopt;
    }
    auto trusted = tdw::verifyExecutable(*path, bundle);
    if (!trusted) {
        outError = trusted.error();
        return std::nullopt;
    }
    return *std::move(trusted);
}

Value TDWInvokeServer(const std::string& serverName, const tdw::Bundle& bundle,
    const std::vector<std::string>& arguments, tdw::Pipe* standardErrorPipe,
    std::int32_t* outTerminationStatus)
{
    std::optional<Error> error;
    const auto executable = TDWValidateServerExecutable(serverName, bundle, error);
    if (!executable)
        return TDWClientErrorResponse(*error);

    tdw::ServerRunOptions options;
    options.executable = *executable;
    options.serverName = serverName;
    options.arguments = arguments;
    if (standardErrorPipe)
        options.standardErrorCopy = std::move(standardErrorPipe->writer);
    auto outcome = tdw::runServer(std::move(options));
    if (!outcome)
        return TDWClientErrorResponse(outcome.error());

    // A run without an envelope takes what its caller has not read for its message.
    Value envelope = tdw::envelopeOfRun(
        serverName, outcome->output, outcome->termination, [&outcome, standardErrorPipe] {
            if (!standardErrorPipe || !standardErrorPipe->reader.isOpen())
                return outcome->standardError;
            Data text = availableBytes(standardErrorPipe->reader);
            const Data rest = outcome->standardErrorCopy.takeRest();
            text.insert(text.end(), rest.begin(), rest.end());
            return text;
        });
    tdw::PipeCopy::passOnRest(std::move(outcome->standardErrorCopy));
    if (outTerminationStatus)
        *outTerminationStatus = outcome->termination.status;
    return envelope;
}

Value TDWParseServerBinaryResponseData(const std::string& serverName,
    const std::optional<Data>& outputData, tdw::FileHandle& standardErrorReader,
    std::int32_t terminationStatus)
{
    return tdw::envelopeOfRun(serverName, outputData, { .status = terminationStatus }, [&] {
        auto text = standardErrorReader.readToEnd();
        return text ? *std::move(text) : Data();
    });
}
