#pragma once

#include "Device/SimulatedService.h"

#include <optional>
#include <string>

namespace tdw::simulator {

/// The lockdown service, on one connection: values, pairing, sessions, and the way to all other
/// services.
class LockdownService final : public SimulatedService {
public:
    explicit LockdownService(ServiceContext context)
        : m_context(std::move(context))
    {
    }

    ServiceReply handle(const Dictionary& request) override;

private:
    struct Command;
    static const Command kCommands[];

    using Content = std::vector<std::pair<std::string_view, Value>>;

    /// A successful reply: the request's name and what it is about.
    ServiceReply accept(const Dictionary& request, const Content& content = {}) const;
    ServiceReply refuse(const Dictionary& request, std::string_view error) const;

    ServiceReply queryType(const Dictionary& request);
    ServiceReply readValue(const Dictionary& request);
    ServiceReply writeValue(const Dictionary& request);
    ServiceReply removeValue(const Dictionary& request);
    ServiceReply pair(const Dictionary& request);
    ServiceReply validatePair(const Dictionary& request);
    ServiceReply unpair(const Dictionary& request);
    ServiceReply startSession(const Dictionary& request);
    ServiceReply stopSession(const Dictionary& request);
    ServiceReply startService(const Dictionary& request);
    ServiceReply goodbye(const Dictionary& request);

    /// Makes a service listen; with `pairing` it begins with TLS.
    ServiceReply launch(const Dictionary& request, const std::string& name,
        const std::shared_ptr<const Pairing>& pairing);

    SimulatedDevice& device() const { return *m_context.attachment.device; }
    bool hasSession() const { return m_session != nullptr; }

    ServiceContext m_context;
    std::shared_ptr<const Pairing> m_session;
    std::string m_sessionId;
};

} // namespace tdw::simulator
