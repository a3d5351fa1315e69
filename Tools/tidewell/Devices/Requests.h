#pragma once

#include "Platform/Bundle.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// Carries requests out. Each blocks until the server has answered or given up by itself.
///
/// This is what an application does too: run a server, unwrap its envelope. Here the host code runs
/// in this process; the device is never touched by it.
class Requests {
public:
    Requests();

    /// Asks a server.
    /// @param server one of the `kTidewellServer` names
    /// @return the payload. Errors: the server's own; `ExitStatus::ServerNotRun`
    Result<Value> send(std::string_view server, const std::vector<std::string>& arguments) const;

private:
    Bundle m_bundle;
};

} // namespace tdw::cli
