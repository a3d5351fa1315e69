// Lists the devices that can be reached now: a plain program, whose callbacks run on the main
// queue.

#include <tidewell/Queue.h>
#include <tidewell/TDWDeviceList.h>
#include <tidewell/TDWResponse.h>
#include <tidewell/TidewellServiceClient.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

void showDevices(const tdw::Value& envelope)
{
    std::optional<tdw::Error> error;
    const auto payload = TDWResponseUnwrap(envelope, error);
    if (!payload) {
        std::fprintf(stderr, "device-list: %s\n", error->failureReason().c_str());
        std::exit(EXIT_FAILURE);
    }
    if (const tdw::Array* devices = payload->arrayAt(kTDWDevicesKey)) {
        for (const tdw::Value& device : *devices) {
            if (const std::string* udid = device.stringAt(kTDWDeviceListItemUDID))
                std::printf("%s\n", udid->c_str());
        }
    }
    std::exit(EXIT_SUCCESS);
}

} // namespace

int main()
{
    const auto client = TidewellServiceClient::initWithQueue(tdw::Queue::main());
    client->deviceListWithCompletionHandler(&showDevices);
    tdw::dispatchMain();
}
