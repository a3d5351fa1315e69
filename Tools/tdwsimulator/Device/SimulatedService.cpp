#include "Device/SimulatedService.h"

#include "Device/CompanionProxyService.h"
#include "Device/LockdownService.h"
#include "Device/NotificationProxyService.h"
#include "Device/SpringboardService.h"

#include <algorithm>
#include <cassert>

namespace tdw::simulator {

namespace {

template <typename T>
std::unique_ptr<SimulatedService> make(const ServiceContext& context)
{
    return std::make_unique<T>(context);
}

struct Entry {
    std::string_view name;
    std::unique_ptr<SimulatedService> (*make)(const ServiceContext&);
};

constexpr Entry kServices[] = {
    { "com.apple.companion_proxy", make<CompanionProxyService> },
    { "com.apple.springboardservices", make<SpringboardService> },
    { "com.apple.mobile.notification_proxy", make<NotificationProxyService> },
    { "com.apple.mobile.insecure_notification_proxy", make<NotificationProxyService> },
};

const Entry* entryOf(std::string_view name)
{
    const auto* found = std::find_if(std::begin(kServices), std::end(kServices),
        [&](const Entry& entry) { return entry.name == name; });
    return found == std::end(kServices) ? nullptr : found;
}

} // namespace

std::string SimulatedService::requestName(const Dictionary& request) const
{
    for (const std::string_view key : { "Request", "Command", "command" }) {
        if (const std::string* name = request.stringAt(key))
            return *name;
    }
    return {};
}

Dictionary SimulatedService::refusal(const Dictionary& request, std::string_view error) const
{
    return Dictionary { { "Error", error }, { "Request", requestName(request) } };
}

bool isKnownService(std::string_view name)
{
    return entryOf(name) != nullptr;
}

std::unique_ptr<SimulatedService> makeService(std::string_view name, const ServiceContext& context)
{
    if (name == kLockdownPlace)
        return make<LockdownService>(context);
    const Entry* entry = entryOf(name);
    assert(entry);
    return entry->make(context);
}

} // namespace tdw::simulator
