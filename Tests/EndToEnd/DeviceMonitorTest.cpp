#include "Client/DeviceMonitor.h"

#include "EndToEnd/PrivateRuntime.h"
#include "EndToEnd/SimulatedDevices.h"
#include "Mailbox.h"
#include "Platform/Queues/Queue.h"
#include "Support/Testing.h"

using namespace tdw;
using namespace matchers;

namespace {

constexpr const char* kPhone = "00008130-00FACADE0001001C";
constexpr const char* kTablet = "00008130-00FACADE0002001C";

/// A phone on the cable, and a tablet that is nowhere yet.
constexpr const char* kScenario
    = R"({"devices": [{"udid": "00008130-00FACADE0001001C"}, {"udid": "00008130-00FACADE0002001C", "connections": []}]})";

} // namespace

TEST(DeviceMonitor, AddsUpToWhatIsThereWhateverEndsAndComesBack)
{
    const PrivateRuntime runtime;
    const SimulatedDevices devices(kScenario);
    const Queue queue = Queue::serial("callbacks");
    Mailbox<std::string> calls;
    std::optional<DeviceMonitor> monitor = DeviceMonitor::start(queue,
        { .event =
                [&](const DeviceEvent& event) {
                    EXPECT_TRUE(queue.isCurrent());
                    calls.put(std::to_string(static_cast<int>(event.type))
                        + (event.path == DevicePath { 1, kPhone } ? " phone" : " tablet"));
                },
            .outage =
                [&](const std::optional<Error>& reason) {
                    EXPECT_TRUE(queue.isCurrent());
                    calls.put(reason ? "outage" : "known");
                } });
    const auto take = [&](std::size_t count) {
        std::vector<std::string> taken;
        while (taken.size() < count)
            taken.push_back(calls.take().value_or("nothing"));
        return taken;
    };
    EXPECT_THAT(take(2), UnorderedElementsAre("1 phone", "known"));

    const pid_t service = PrivateRuntime::servicePid();
    ASSERT_GT(service, 0);
    kill(service, SIGKILL);
    devices.detach(kPhone);
    devices.attach(kTablet);
    EXPECT_THAT(take(1), ElementsAre("outage"));
    EXPECT_THAT(take(3), UnorderedElementsAre("2 phone", "1 tablet", "known"));
    EXPECT_THAT(monitor->devices(), ElementsAre(DevicePath { 1, kTablet }));

    devices.inject(R"("at":"mux","fault":"absent")");
    EXPECT_THAT(take(2), ElementsAre("2 tablet", "outage"));
    devices.clearFaults();
    EXPECT_THAT(take(2), UnorderedElementsAre("1 tablet", "known"));

    // Neither a call nor a service once it is gone.
    monitor.reset();
    devices.detach(kTablet);
    Mailbox<bool> isOver;
    queue.async([&] { isOver.put(true); });
    (void)isOver.take();
    EXPECT_TRUE(calls.isEmpty());
}
