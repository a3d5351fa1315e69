#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Server/DeviceSession.h"

#include <functional>
#include <optional>
#include <variant>

namespace tdw {

/// What a request ends with: the content of its one envelope.
struct ServerReply {
    /// The payload of a data envelope, or the error of an error envelope.
    std::variant<Value, Error> content;
    /// The identity record of the device that answered.
    std::optional<Value> deviceID {};
    /// The exit status, where it is not the usual one: 0 for a payload; for the error of a library
    /// call the library's code; for any other error what `TDWSerializeErrorResponse` returns.
    std::optional<int> status {};
};

/// The work of one server. It writes nothing to standard output.
using ServerJob = std::function<Result<ServerReply>(DeviceSession& session)>;

/// Runs a job, writes its one envelope, stops the clock and frees what the job has opened.
///
///     int TDWSomethingServerMain(int argumentCount, char** arguments)
///     {
///         TDWServerInitialize();
///         return tdw::answerRequest([&](tdw::DeviceSession& session) ->
///         tdw::Result<tdw::ServerReply> {
///             const char* udid = TDW_TRY(tdw::requiredUdid(argumentCount, arguments));
///             TDW_TRY(session.open(udid, IDEVICE_LOOKUP_USBMUX));
///             …
///             return tdw::ServerReply { payload };
///         });
///     }
///
/// The device library can wait for half a minute on a device that has fallen silent, and the caller
/// waits for the end of the process. So the process ends with its status one second after the
/// envelope is written, whatever is still being freed.
/// @return the exit status
int answerRequest(const ServerJob& job);

/// The first argument, which is the device's UDID in most servers.
/// Errors: "Device UDID must be provided.", code 1.
Result<const char*> requiredUdid(int argumentCount, char** arguments);

} // namespace tdw
