#include "Device/LockdownService.h"

#include <array>
#include <cstdio>

namespace tdw::simulator {

namespace {

std::string textOr(const Dictionary& request, std::string_view key, std::string_view otherwise)
{
    const std::string* text = request.stringAt(key);
    return text ? *text : std::string(otherwise);
}

std::string sessionIdentifier(std::uint64_t number)
{
    std::array<char, 40> text {};
    std::snprintf(text.data(), text.size(), "7E57CAFE-0000-4000-8000-%012llX",
        static_cast<unsigned long long>(number));
    return text.data();
}

/// The HostID of the record that comes with pairing requests, or an empty one.
std::string hostIdIn(const Dictionary& request)
{
    const Dictionary* record = request.dictionaryAt("PairRecord");
    return record ? textOr(*record, "HostID", "") : std::string();
}

} // namespace

struct LockdownService::Command {
    std::string_view name;
    ServiceReply (LockdownService::*run)(const Dictionary&);
};

const LockdownService::Command LockdownService::kCommands[] = {
    { "GetValue", &LockdownService::readValue },
    { "QueryType", &LockdownService::queryType },
    { "StartSession", &LockdownService::startSession },
    { "StartService", &LockdownService::startService },
    { "StopSession", &LockdownService::stopSession },
    { "SetValue", &LockdownService::writeValue },
    { "RemoveValue", &LockdownService::removeValue },
    { "Pair", &LockdownService::pair },
    { "ValidatePair", &LockdownService::validatePair },
    { "Unpair", &LockdownService::unpair },
    { "Goodbye", &LockdownService::goodbye },
};

ServiceReply LockdownService::handle(const Dictionary& request)
{
    const std::string name = requestName(request);
    for (const Command& command : kCommands) {
        if (command.name == name)
            return (this->*command.run)(request);
    }
    return refuse(request, "InvalidRequest");
}

ServiceReply LockdownService::accept(const Dictionary& request, const Content& content) const
{
    Dictionary reply;
    for (const auto& [key, value] : content)
        reply.set(key, value);
    reply.set("Request", requestName(request));
    if (device().description().repliesWithResult)
        reply.set("Result", "Success");
    return ServiceReply { .messages = { std::move(reply) } };
}

ServiceReply LockdownService::refuse(const Dictionary& request, std::string_view error) const
{
    Dictionary reply = refusal(request, error);
    if (device().description().repliesWithResult)
        reply.set("Result", "Failure");
    return ServiceReply { .messages = { std::move(reply) } };
}

ServiceReply LockdownService::queryType(const Dictionary& request)
{
    return accept(request, { { "Type", "com.apple.mobile.lockdown" } });
}

ServiceReply LockdownService::readValue(const Dictionary& request)
{
    const std::string domain = textOr(request, "Domain", kGlobalDomain);
    const std::string* key = request.stringAt("Key");
    const LockdownValues& values = device().values();
    // Over the network a device tells nothing to a host that it does not know.
    if (!hasSession() && m_context.attachment.type == ConnectionType::Network)
        return refuse(request, "GetProhibited");
    Content content;
    if (domain != kGlobalDomain)
        content.emplace_back("Domain", domain);
    if (key) {
        content.emplace_back("Key", *key);
        if (!hasSession() && !values.isPublic(domain, *key))
            return refuse(request, "GetProhibited");
        const Value* value = values.value(domain, *key);
        if (!value)
            return refuse(request, "MissingValue");
        content.emplace_back("Value", *value);
        return accept(request, content);
    }
    if (!hasSession() && domain != kGlobalDomain)
        return refuse(request, "GetProhibited");
    const Dictionary* all = values.domain(domain);
    if (!hasSession())
        content.emplace_back("Value", values.publicValues());
    else
        content.emplace_back("Value", all ? *all : Dictionary());
    return accept(request, content);
}

ServiceReply LockdownService::writeValue(const Dictionary& request)
{
    const std::string domain = textOr(request, "Domain", kGlobalDomain);
    const std::string* key = request.stringAt("Key");
    const Value* value = request.find("Value");
    // A host that is not trusted may leave its name, so that the dialog can show it.
    const bool isHostName = domain == kGlobalDomain && key && *key == "UntrustedHostBUID";
    if (!hasSession() && !isHostName)
        return refuse(request, "SessionInactive");
    if (!key)
        return refuse(request, "MissingKey");
    if (!value)
        return refuse(request, "MissingValue");
    if (!isHostName && !LockdownValues::isWritable(domain, *key))
        return refuse(request, domain == kWirelessDomain ? "ImmutableValue" : "SetProhibited");
    device().values().set(domain, *key, *value);
    Content content { { "Key", *key }, { "Value", *value } };
    if (domain != kGlobalDomain)
        content.emplace_back("Domain", domain);
    return accept(request, content);
}

ServiceReply LockdownService::removeValue(const Dictionary& request)
{
    const std::string domain = textOr(request, "Domain", kGlobalDomain);
    const std::string* key = request.stringAt("Key");
    if (!hasSession())
        return refuse(request, "SessionInactive");
    if (!key)
        return refuse(request, "MissingKey");
    if (!LockdownValues::isWritable(domain, *key))
        return refuse(request, "RemoveProhibited");
    if (!device().values().remove(domain, *key))
        return refuse(request, "MissingValue");
    return accept(request, { { "Key", *key } });
}

ServiceReply LockdownService::pair(const Dictionary& request)
{
    const Dictionary* record = request.dictionaryAt("PairRecord");
    if (!record)
        return refuse(request, "MissingPairRecord");
    if (const auto refusal = device().trust().refusalToPair(m_context.attachment.type))
        return refuse(request, *refusal);
    if (const auto wrong = device().pairings().add(*record))
        return refuse(request, *wrong);
    const auto pairing = device().pairings().find(hostIdIn(request));
    ServiceReply reply = accept(request, { { "EscrowBag", pairing->escrowBag } });
    // A new record ends what a device has forgotten; one with a dialog has moved at the tap.
    const Trust trust = device().trust().trust();
    if (trust == Trust::ForgotHostInTls)
        device().trust().setTrust(Trust::Trusts);
    if (trust != Trust::Asks && device().description().reconnectsAfterTrust)
        reply.next = ServiceReply::Next::Reattach;
    return reply;
}

ServiceReply LockdownService::validatePair(const Dictionary& request)
{
    if (!device().pairings().find(hostIdIn(request)))
        return refuse(request, "InvalidHostID");
    if (const auto refusal = device().trust().refusalToValidate())
        return refuse(request, *refusal);
    return accept(request);
}

ServiceReply LockdownService::unpair(const Dictionary& request)
{
    if (!device().pairings().remove(hostIdIn(request)))
        return refuse(request, "InvalidHostID");
    return accept(request);
}

ServiceReply LockdownService::startSession(const Dictionary& request)
{
    const std::string* hostId = request.stringAt("HostID");
    if (!hostId)
        return refuse(request, "MissingHostID");
    if (hasSession())
        return refuse(request, "SessionActive");
    const auto pairing = device().pairings().find(*hostId);
    if (!pairing)
        return refuse(request, "InvalidHostID");
    if (const auto refusal = device().trust().refusalToStartSession())
        return refuse(request, *refusal);
    m_session = pairing;
    m_sessionId = sessionIdentifier(device().nextSessionNumber());
    const bool usesTls = device().description().usesTls;
    ServiceReply reply
        = accept(request, { { "EnableSessionSSL", usesTls }, { "SessionID", m_sessionId } });
    if (usesTls) {
        reply.next = ServiceReply::Next::StartTls;
        reply.pairing = pairing;
    }
    return reply;
}

ServiceReply LockdownService::stopSession(const Dictionary& request)
{
    if (!hasSession())
        return refuse(request, "SessionInactive");
    const std::string* identifier = request.stringAt("SessionID");
    if (!identifier)
        return refuse(request, "MissingSessionID");
    if (*identifier != m_sessionId)
        return refuse(request, "InvalidSessionID");
    m_session.reset();
    ServiceReply reply = accept(request);
    if (device().description().usesTls)
        reply.next = ServiceReply::Next::StopTls;
    return reply;
}

ServiceReply LockdownService::startService(const Dictionary& request)
{
    const std::string* name = request.stringAt("Service");
    if (name && *name == "com.apple.mobile.insecure_notification_proxy")
        return launch(request, *name, nullptr);
    if (!hasSession())
        return refuse(request, "SessionInactive");
    if (!name)
        return refuse(request, "MissingService");
    // The bag that came with the pairing unlocks what a passcode has not unlocked yet.
    const Data* bag = request.dataAt("EscrowBag");
    const bool isUnlocked = bag && *bag == m_session->escrowBag;
    if (const auto refusal = device().trust().refusalToStartService(); refusal && !isUnlocked)
        return refuse(request, *refusal);
    if (!isKnownService(*name))
        return refuse(request, "InvalidService");
    return launch(request, *name, device().description().usesTls ? m_session : nullptr);
}

ServiceReply LockdownService::launch(const Dictionary& request, const std::string& name,
    const std::shared_ptr<const Pairing>& pairing)
{
    const auto port = m_context.launch(ServiceLaunch { name, pairing });
    if (!port)
        return refuse(request, "ServiceLimit");
    Content content { { "Port", *port }, { "Service", name } };
    if (pairing)
        content.emplace_back("EnableServiceSSL", true);
    return accept(request, content);
}

ServiceReply LockdownService::goodbye(const Dictionary& request)
{
    ServiceReply reply = accept(request, { { "Result", "Success" } });
    reply.next = ServiceReply::Next::Close;
    return reply;
}

} // namespace tdw::simulator
