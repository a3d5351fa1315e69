// Lists the devices that can be reached now: a plain program, whose callbacks run on the main
// queue.

#include "Client/TidewellServiceClient.h"
#include "Interfaces/TDWDeviceList.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Queue.h"

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
    const tdw::Dictionary* dictionary = payload->asDictionary();
    const tdw::Value* devices = dictionary ? dictionary->find(kTDWDevicesKey) : nullptr;
    if (devices && devices->asArray()) {
        for (const tdw::Value& device : *devices->asArray()) {
            const tdw::Dictionary* entry = device.asDictionary();
            const tdw::Value* udid = entry ? entry->find(kTDWDeviceListItemUDID) : nullptr;
            if (udid && udid->asString())
                std::printf("%s\n", udid->asString()->c_str());
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
