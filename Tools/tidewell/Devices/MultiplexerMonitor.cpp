#include "Devices/MultiplexerMonitor.h"

#include "Devices/DeviceList.h"
#include "Devices/DeviceSelection.h"
#include "Multiplexer/UsbBus.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tdw::cli {

namespace {

constexpr std::chrono::seconds kPause { 2 };

} // namespace

MultiplexerMonitor::MultiplexerMonitor(DeviceRequests& requests, Handler handler)
    : m_requests(requests)
    , m_client(requests.loop())
    , m_handler(std::move(handler))
{
    look();
}

void MultiplexerMonitor::look()
{
    m_client.listDevices([this](const Result<std::vector<std::string>>& udids) { listed(udids); });
}

void MultiplexerMonitor::listed(const Result<std::vector<std::string>>& udids)
{
    m_timer = m_requests.loop().after(kPause, [this] { look(); });
    auto problems = udids ? missingTwice(*udids) : std::vector { udids.error() };
    if (problems == m_problems)
        return;
    m_problems = std::move(problems);
    m_handler(m_problems);
}

std::vector<Error> MultiplexerMonitor::missingTwice(const std::vector<std::string>& listedUdids)
{
    std::vector<std::string> missing;
    if (isOwnUsbBus(m_client.address().isFromEnvironment))
        missing = missingFromList(devicesOnUsbBus(), [&](const std::string& udid) {
            return std::ranges::any_of(listedUdids, [&](const std::string& listed) {
                return comparableUdid(listed) == comparableUdid(udid);
            });
        });
    std::vector<Error> problems;
    for (const std::string& udid : missing) {
        if (std::ranges::find(m_missing, udid) != m_missing.end())
            problems.push_back(notShownByMultiplexer(udid));
    }
    m_missing = std::move(missing);
    return problems;
}

} // namespace tdw::cli
