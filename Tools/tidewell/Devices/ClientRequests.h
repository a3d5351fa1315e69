#pragma once

#include "Client/TidewellServiceClient.h"

#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// Makes the client's request that a server and its arguments mean.
/// @param server one of the `kTidewellServer` names that answer requests
void sendByClient(TidewellServiceClient& client, std::string_view server,
    const std::vector<std::string>& arguments, TidewellServiceClient::CompletionHandler handler);

} // namespace tdw::cli
