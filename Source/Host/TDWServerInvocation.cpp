#include "Host/TDWServerInvocation.h"

#include "Host/ServerEnvelope.h"
#include "Host/ServerRun.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Trust.h"
#include "Support/TDWErrorHelpers.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

using tdw::Data;
using tdw::Dictionary;
using tdw::Error;
using tdw::Value;

namespace {

constexpr std::int32_t kNotFoundCode = 1;

Error notFound(const std::string& serverName, const Error& cause)
{
    const Dictionary userInfo { { tdw::kLocalizedFailureReasonErrorKey,
                                    "Server executable not found for \"" + serverName + "\"" },
        { tdw::kUnderlyingErrorKey, cause } };
    return TDWErrorCreateWithInfo(kNotFoundCode, &userInfo);
}

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
    auto path = bundle.pathForAuxiliaryExecutable(serverName);
    if (!path) {
        outError = notFound(serverName,
            Error(tdw::kCocoaErrorDomain, EINVAL,
                "A server's name is a plain file name: not empty, not \".\" or \"..\", without a "
                "slash or a NUL."));
        return std::nullopt;
    }
    if (access(path->c_str(), F_OK) != 0) {
        outError = notFound(serverName, Error::posix(errno, "Cannot find \"" + *path + "\""));
        return std::nullopt;
    }
    if (const auto trusted = tdw::verifyExecutable(*path, bundle.auxiliaryDirectory()); !trusted) {
        outError = trusted.error();
        return std::nullopt;
    }
    return path;
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
    if (standardErrorPipe && standardErrorPipe->reader.isOpen())
        options.standardErrorCopy = std::move(standardErrorPipe->writer);
    const auto outcome = tdw::runServer(std::move(options));
    if (!outcome)
        return TDWClientErrorResponse(outcome.error());

    const std::int32_t status = outcome->termination.status;
    Value envelope = tdw::envelopeOfRun(serverName, outcome->output, status, [&] {
        return standardErrorPipe ? availableBytes(standardErrorPipe->reader)
                                 : outcome->standardError;
    });
    if (outTerminationStatus)
        *outTerminationStatus = status;
    return envelope;
}

Value TDWParseServerBinaryResponseData(const std::string& serverName,
    const std::optional<Data>& outputData, tdw::FileHandle& standardErrorReader,
    std::int32_t terminationStatus)
{
    return tdw::envelopeOfRun(serverName, outputData, terminationStatus, [&] {
        auto text = standardErrorReader.readToEnd();
        return text ? *std::move(text) : Data();
    });
}
