#pragma once

#include "Events/CallbackLoop.h"
#include "Events/DeviceFeed.h"
#include "Platform/FileHandle.h"

#include <chrono>
#include <cstdint>

class TidewellServiceClient;

namespace tdw::cli {

/// The events that the service tells its clients, from one service to the next.
///
///      connecting ──> subscribing ──> streaming
///          ^               │ fails        │ the service goes
///          └──── pause <───┴──────────────┘
///
/// A client is not told when its connection is lost; it renews the subscription with its next
/// request. Therefore the feed holds a connection more, which says nothing, and whose end says that
/// the service is gone. It is made before the subscription, so that no end in between is missed.
///
/// What came and went while there was no service is told once the next one is there, as if it had
/// happened then; what stayed is not told again.
class ServiceFeed final : public DeviceFeed {
public:
    static constexpr std::chrono::milliseconds kShortestPause { 100 };
    static constexpr std::chrono::milliseconds kLongestPause { 10000 };
    /// A service that lived that long is no reason to wait longer the next time.
    static constexpr std::chrono::seconds kGoodLife { 10 };

    /// Begins to connect. Errors: `kPosixErrorDomain`
    static Result<std::unique_ptr<ServiceFeed>> create();
    ~ServiceFeed() override;

    int descriptor() const override { return m_poll.descriptor(); }
    Result<std::vector<DeviceEvent>> take() override;
    std::optional<Error> outage() const override { return m_outage; }

private:
    using Clock = std::chrono::steady_clock;

    ServiceFeed(CallbackLoop loop, FileHandle poll, FileHandle timer);

    void connect();
    void connected(Result<FileHandle> socket);
    void subscribe();
    void subscribed(const std::optional<Error>& error);
    void listed(const Value& envelope);
    void failed(const Error& error);
    void tell(const service::DevicePresence::Lines& lines);
    void disconnect();
    bool isServiceGone() const;
    bool isPauseOver() const;
    Result<void> watch(const FileHandle& handle) const;

    /// `action` as a callback that counts only until the next disconnection.
    template <typename Action>
    auto ifCurrent(Action action);

    const CallbackLoop m_loop;
    const FileHandle m_poll;
    const FileHandle m_timer;

    FileHandle m_service;
    std::shared_ptr<TidewellServiceClient> m_client;
    service::DevicePresence m_presence;
    std::vector<DeviceEvent> m_events;
    std::optional<Error> m_outage;
    std::optional<Error> m_end;
    bool m_hasStreamed = false;
    Clock::time_point m_start {};
    std::chrono::milliseconds m_pause = kShortestPause;
    /// Which connection callbacks belong to; shared with them, because they may outlive the feed.
    std::shared_ptr<std::uint64_t> m_generation = std::make_shared<std::uint64_t>(0);
};

} // namespace tdw::cli
