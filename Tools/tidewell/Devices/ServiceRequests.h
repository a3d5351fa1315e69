#pragma once

#include "Platform/Result.h"
#include "Platform/Value.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class TidewellServiceClient;

namespace tdw::cli {

/// Carries requests out through the service, as applications do; the first one starts it where none
/// runs. Safe for use by several threads at once.
class ServiceRequests {
public:
    ServiceRequests();
    ServiceRequests(const ServiceRequests&) = delete;
    ServiceRequests& operator=(const ServiceRequests&) = delete;
    ~ServiceRequests();

    /// Blocks until the service has answered, which has its bounds for every request.
    /// Errors: those of `requestError`
    Result<Value> send(std::string_view server, const std::vector<std::string>& arguments) const;

private:
    class Callbacks;

    std::shared_ptr<Callbacks> m_callbacks;
    std::shared_ptr<TidewellServiceClient> m_client;
};

} // namespace tdw::cli
