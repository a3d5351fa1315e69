#pragma once

#include "Platform/Bundle.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

class ServiceRequests;

/// Carries requests out. Each blocks until the server has answered or given up by itself.
///
/// A device is never touched by this process: a server does that, which either the service starts,
/// as for every application, or the host code in this process.
class Requests {
public:
    enum class Road { Service, Direct };

    explicit Requests(Road road);

    Road road() const { return m_service ? Road::Service : Road::Direct; }

    /// Asks a server.
    /// @param server one of the `kTidewellServer` names
    /// @return the payload. Errors: the server's own; `ExitStatus::ServerNotRun`;
    ///         `ExitStatus::ServiceUnavailable`
    Result<Value> send(std::string_view server, const std::vector<std::string>& arguments) const;

private:
    Result<Value> sendDirectly(
        const std::string& server, const std::vector<std::string>& arguments) const;

    Bundle m_bundle;
    /// Shared, because a request that was given up may outlive everything else. Null: the direct
    /// road.
    std::shared_ptr<const ServiceRequests> m_service;
};

} // namespace tdw::cli
