#pragma once

#include "Device/Channel.h"
#include "Device/SimulatedService.h"
#include "Device/TlsSession.h"
#include "Device/WireFault.h"

#include <memory>
#include <optional>
#include <string>

namespace tdw::simulator {

/// One connection to one of a device's services: frames, TLS and faults around a
/// `SimulatedService`.
///
///     bytes → (TLS) → frames → faults → SimulatedService → faults → frame → (TLS) → bytes
class DeviceConnection final : public ChannelHandler,
                               public std::enable_shared_from_this<DeviceConnection> {
public:
    /// @param context what the service may reach; sends what it pushes through this connection
    /// @param service lockdown or a known service
    DeviceConnection(
        ServiceContext context, const std::shared_ptr<Channel>& channel, ServiceLaunch service);

    /// Begins; to be called once, when the channel's bytes go here.
    void start();

    void received(std::span<const std::byte> bytes) override;

private:
    enum class State {
        Open,
        /// An answer is delayed.
        Waiting,
        /// A fault keeps this connection open and silent.
        Ignoring,
        Closed,
    };

    void handleFrames();
    void handle(const Value& message);
    void deliverReply(const ServiceReply& reply, const FaultedReply& faulted);
    void finish(const ServiceReply& reply, FaultedReply::After after);
    void sendContent(std::span<const std::byte> content);
    void push(const Value& message);

    void startTls(const std::shared_ptr<const Pairing>& pairing);
    void acceptTls(const std::shared_ptr<const Pairing>& pairing, bool isWrongCertificate);
    void receiveTls(std::span<const std::byte> bytes);
    void leaveTls();
    void logTls(std::string_view event, Dictionary message);

    void afterDelay(std::chrono::milliseconds delay, std::function<void()> action);
    void unplug();
    void reattach();

    /// Ends the connection as a service does that has said everything, TLS included.
    void sayGoodbye();

    /// Ends it without a word.
    void close();

    Simulation& m_simulation;
    Attachment m_attachment;
    std::weak_ptr<Channel> m_channel;
    std::string m_place;
    std::unique_ptr<SimulatedService> m_service;
    std::shared_ptr<const Pairing> m_pairing;
    PropertyListFrameDecoder m_decoder;
    std::unique_ptr<TlsSession> m_tls;
    TlsContextHandle m_wrongContext;
    bool m_isHandshaking = false;
    bool m_isLeavingTls = false;
    State m_state = State::Open;
};

} // namespace tdw::simulator
