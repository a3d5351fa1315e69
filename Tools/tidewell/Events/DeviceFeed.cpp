#include "Events/DeviceFeed.h"

#include "Events/DirectFeed.h"
#include "Events/ServiceFeed.h"

#include <utility>

namespace tdw::cli {

Result<std::unique_ptr<DeviceFeed>> openDeviceFeed(Requests::Road road)
{
    if (road == Requests::Road::Direct)
        return std::unique_ptr<DeviceFeed>(TDW_TRY(DirectFeed::create()));
    return std::unique_ptr<DeviceFeed>(TDW_TRY(ServiceFeed::create()));
}

} // namespace tdw::cli
