#include "Terminal/AtomicFileWriter.h"

#include "Errors/CommandLineError.h"

#include <cerrno>
#include <system_error>

namespace tdw::cli {

namespace {

Result<void> forPeople(const std::string& path, Result<void> result)
{
    if (result)
        return result;
    const int code = static_cast<int>(result.error().code());
    if (code == EEXIST || code == EINVAL)
        return commandLineError({ .status = ExitStatus::Failure,
            .reason = result.error().failureReason() + ".",
            .advice = code == EEXIST ? "Give --force to overwrite it." : "" });
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = "Cannot write \"" + path + "\"",
        .cause = Error(kPosixErrorDomain, code, std::generic_category().message(code)) });
}

} // namespace

Result<void> checkDestination(const std::string& path, Overwrite overwrite)
{
    return forPeople(path, tdw::checkFileDestination(path, overwrite));
}

Result<void> writeFileAtomically(
    const std::string& path, std::span<const std::byte> bytes, Overwrite overwrite)
{
    return forPeople(path, tdw::writeWholeFile(path, bytes, overwrite));
}

} // namespace tdw::cli
