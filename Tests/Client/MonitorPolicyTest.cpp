#include "Client/MonitorPolicy.h"

#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace std::chrono_literals;
using Devices = std::set<DevicePath>;

namespace {

const Error kGone(kCocoaErrorDomain, 4097, std::string_view("gone"));
const Error kNoMultiplexer = TDWErrorCreate("idevice_get_device_list_extended", -3);
const Error kSlow = TDWErrorCreateWithMessage("slow", 7);

struct Texts {
    std::string operator()(const DeviceEvent& event) const { return deviceEventText(event); }
    std::string operator()(const MonitorPolicy::Outage& outage) const
    {
        return outage.reason ? "outage " + std::to_string(outage.reason->code()) : "known";
    }
    std::string operator()(const MonitorPolicy::Subscribe&) const { return "subscribe"; }
    std::string operator()(const MonitorPolicy::Disconnect&) const { return "disconnect"; }
    std::string operator()(const MonitorPolicy::ListDevices&) const { return "list"; }
    std::string operator()(const MonitorPolicy::Wait& wait) const
    {
        return "wait " + std::to_string(wait.delay.count());
    }
};

/// A policy that is told events and answers with what it does, at a time that the test sets.
class Policy {
public:
    std::string start() { return text(m_policy.started(now)); }
    std::string subscribed() { return text(m_policy.subscribed(now)); }
    std::string fail(const Error& error) { return text(m_policy.failed(error, now)); }
    std::string wait() { return text(m_policy.waited(now)); }
    std::string hear(const char* event)
    {
        return text(m_policy.received(*parseDeviceEvent(event), now));
    }
    std::string list(const Result<Devices>& devices) { return text(m_policy.listed(devices, now)); }

    MonitorPolicy::Time now { 1000s };

private:
    static std::string text(const MonitorPolicy::Actions& actions)
    {
        std::string text;
        for (const auto& action : actions)
            text += (text.empty() ? "" : ", ") + std::visit(Texts(), action);
        return text;
    }

    MonitorPolicy m_policy;
};

} // namespace

TEST(MonitorPolicy, KnowsWhenItCannotKnow)
{
    Policy policy;
    (void)policy.start();
    (void)policy.subscribed();
    EXPECT_EQ(policy.list(kNoMultiplexer), "outage -3, wait 1000");
    EXPECT_EQ(policy.wait(), "list");
    EXPECT_EQ(policy.wait(), "") << "one list at a time";
    EXPECT_EQ(policy.list(kNoMultiplexer), "wait 1000");
    EXPECT_EQ(policy.hear("1,1,a"), "1,1,a, known") << "the multiplexer is back";
    EXPECT_EQ(policy.wait(), "");

    EXPECT_EQ(policy.hear("2,1,a"), "2,1,a, list") << "is it there still?";
    EXPECT_EQ(policy.list(kNoMultiplexer), "outage -3, wait 1000");
    EXPECT_EQ(policy.wait(), "list");
    EXPECT_EQ(policy.list(Devices()), "known") << "back, without a device";

    (void)policy.hear("1,1,a");
    (void)policy.fail(kGone);
    (void)policy.wait();
    (void)policy.subscribed();
    EXPECT_EQ(policy.list(kSlow), "outage 7, wait 1000") << "the device may be there";
    EXPECT_EQ(policy.wait(), "list");
    EXPECT_EQ(policy.list(kNoMultiplexer), "2,1,a, outage -3, wait 1000") << "it is not";
}
