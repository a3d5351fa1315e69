#pragma once

#include <cstdint>
#include <string>

namespace tdw::cli {

/// Where the multiplexer is: a local socket, or a host and a port.
struct MultiplexerAddress {
    /// The path of a local socket; empty for one that is reached over the network.
    std::string path {};
    std::string host {};
    std::uint16_t port = 0;

    /// Whether it comes from the environment and is not the usual one.
    bool isFromEnvironment = false;

    /// The path, or the host and the port, for messages.
    std::string description() const;

    bool operator==(const MultiplexerAddress&) const = default;
};

/// The address that the device libraries use.
/// @param variable the value of USBMUXD_SOCKET_ADDRESS ("UNIX:/path", "host:port" or "[v6]:port"),
///        or null. The libraries pass over what they cannot read, and so does this.
MultiplexerAddress multiplexerAddress(const char* variable);

/// The same with the variable as it is now.
MultiplexerAddress multiplexerAddress();

} // namespace tdw::cli
