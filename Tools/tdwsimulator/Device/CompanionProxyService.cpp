#include "Device/CompanionProxyService.h"

namespace tdw::simulator {

ServiceReply CompanionProxyService::handle(const Dictionary& request)
{
    const std::string name = requestName(request);
    ServiceReply reply { .next = ServiceReply::Next::Close };
    if (name == "GetDeviceRegistry")
        reply.messages = { registry() };
    else if (name == "GetValueFromRegistry")
        reply.messages = { registryValue(request) };
    return reply;
}

Dictionary CompanionProxyService::refusal(const Dictionary&, std::string_view error) const
{
    return Dictionary { { "Error", error } };
}

Dictionary CompanionProxyService::registry() const
{
    if (m_device.companions().empty())
        return Dictionary { { "Error", "NoPairedWatches" } };
    Array identifiers;
    for (const CompanionDescription& companion : m_device.companions())
        identifiers.emplace_back(companion.udid);
    return Dictionary { { "PairedDevicesArray", std::move(identifiers) } };
}

Dictionary CompanionProxyService::registryValue(const Dictionary& request) const
{
    const std::string* identifier = request.stringAt("GetValueGizmoUDIDKey");
    const std::string* key = request.stringAt("GetValueKeyKey");
    const CompanionDescription* companion = identifier ? m_device.companion(*identifier) : nullptr;
    if (!companion)
        return Dictionary { { "Error", "NoPairedWatches" } };
    if (!key)
        return Dictionary { { "Error", "UnsupportedWatchKey" } };
    if (const std::string* error = companion->errors.stringAt(*key))
        return Dictionary { { "Error", *error } };
    const Value* value = companion->values.find(*key);
    if (!value)
        return Dictionary { { "Error", "UnsupportedWatchKey" } };
    return Dictionary { { "RetrievedValueDictionary", Dictionary { { *key, *value } } } };
}

} // namespace tdw::simulator
