#pragma once

#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Server/DeviceSession.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tdw {

/// The devices that the multiplexer shows; see `Recording/Reading.h`.
Result<Dictionary> connectedDevices();

/// Asks one device for everything that it tells, and keeps each request with its reply as it came.
///
///     const auto reading = DeviceReader(udid).read(WithWallpaper::No);
///
/// Nothing makes the device ask its user: without a pair record there is no session, and what the
/// device tells every host is all that is read. Each step is announced on standard error. The steps
/// have no bound of their own: the starter of this process ends it.
class DeviceReader {
public:
    enum class WithWallpaper { No, Yes };

    explicit DeviceReader(std::string udid)
        : m_udid(std::move(udid))
    {
    }

    /// Errors: a sentence; the device cannot be reached, or is gone half-way.
    Result<Dictionary> read(WithWallpaper withWallpaper);

private:
    using Request = std::initializer_list<std::pair<const char*, std::string>>;
    enum class Outcome { Served, Refused };

    Result<void> open();
    Result<void> startSession(Dictionary& reading);
    Result<void> readValues();
    Result<void> readWatches();
    Result<void> readScreen(WithWallpaper withWallpaper);
    Result<Value> askLockdown(std::string_view stage, Request request);

    /// Asks a service on a connection of its own, which may end without a reply.
    Result<Outcome> askService(std::string_view stage, std::string_view service, Request request);
    void keep(std::string_view at, Value request, std::optional<Value> reply);
    Error gone(std::string_view stage) const;

    std::string m_udid;
    DeviceSession m_session;
    bool m_hasSession = false;
    Array m_exchanges;
};

} // namespace tdw
