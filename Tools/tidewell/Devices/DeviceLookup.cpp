#include "Devices/DeviceLookup.h"

#include "Errors/CommandLineError.h"
#include "Interfaces/TDWDeviceInfo.h"
#include "Support/TDWErrorKinds.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

namespace tdw::cli {

namespace {

/// Enough to keep both processors and devices busy; a device that hangs takes one place.
constexpr std::size_t kMostLookups = 16;

constexpr const char* kConnect = "Connect a device with a cable and unlock it.";

/// The look-ups of one call, which outlive it where answers come late.
class NameLookups : public std::enable_shared_from_this<NameLookups> {
public:
    NameLookups(DeviceRequests& requests, std::vector<ListedDevice> devices, NamePatience patience)
        : m_requests(requests)
        , m_patience(std::move(patience))
        , m_devices(std::move(devices))
        , m_lookups(m_devices.size())
    {
    }

    bool isDone() const { return m_next == m_devices.size() && m_running == 0; }

    void goOn()
    {
        while (m_running < kMostLookups && m_next < m_devices.size())
            begin(m_next++);
    }

    DeviceNames names {};

private:
    struct Lookup {
        EventLoop::Source deadline {};
        EventLoop::Clock::time_point start {};
        bool isSettled = false;
    };

    void begin(std::size_t index)
    {
        ++m_running;
        m_lookups[index].start = EventLoop::Clock::now();
        waitFor(index, m_isFound ? m_patience.shortestAfterMatch : m_patience.shortest);
        m_requests.multiplexer().findPairRecord(m_devices[index].udid,
            [self = shared_from_this(), index](const Result<bool>& isPaired) {
                if (isPaired && *isPaired)
                    self->ask(index);
                else
                    self->settle(index);
            });
    }

    void waitFor(std::size_t index, EventLoop::Clock::duration time)
    {
        m_lookups[index].deadline = m_requests.loop().after(time, [this, index] {
            const auto left = m_lookups[index].start + patience() - EventLoop::Clock::now();
            if (left > EventLoop::Clock::duration::zero())
                waitFor(index, left);
            else
                settleSilent(index);
        });
    }

    /// A busy computer makes all answers slow.
    EventLoop::Clock::duration patience() const
    {
        if (!m_slowest)
            return m_patience.longest;
        return std::clamp<EventLoop::Clock::duration>(4 * *m_slowest,
            m_isFound ? m_patience.shortestAfterMatch : m_patience.shortest, m_patience.longest);
    }

    void found()
    {
        if (std::exchange(m_isFound, true))
            return;
        for (std::size_t i = 0; i < m_next; ++i) {
            if (!m_lookups[i].isSettled)
                waitFor(i, m_patience.shortestAfterMatch);
        }
    }

    void ask(std::size_t index)
    {
        if (m_lookups[index].isSettled)
            return;
        const ListedDevice& device = m_devices[index];
        const auto connection = device.isReachedBy(ConnectionType::Usb) ? ConnectionType::Usb
                                                                        : ConnectionType::Network;
        m_requests.send(DeviceInfoQuery { .udid = device.udid,
                            .connectionType = static_cast<std::uint64_t>(connection),
                            .mayPair = false,
                            .publicOnly = connection == ConnectionType::Usb },
            [self = shared_from_this(), index](
                const Result<Value>& info) { self->answered(index, info); });
    }

    void answered(std::size_t index, const Result<Value>& info)
    {
        if (m_lookups[index].isSettled)
            return;
        if (!info && isServerTimeout(info.error()))
            return settleSilent(index);
        m_slowest = std::max(m_slowest.value_or(EventLoop::Clock::duration::zero()),
            EventLoop::Clock::now() - m_lookups[index].start);
        settle(index);
        const std::string* name = info ? info->stringAt(kTDWDeviceInfoDeviceName) : nullptr;
        if (!name)
            return;
        names.named.push_back({ m_devices[index], *name });
        if (isName(m_patience.wanted, *name))
            found();
    }

    void settleSilent(std::size_t index)
    {
        names.silent.push_back(m_devices[index]);
        settle(index);
    }

    void settle(std::size_t index)
    {
        if (std::exchange(m_lookups[index].isSettled, true))
            return;
        m_lookups[index].deadline = {};
        --m_running;
        goOn();
    }

    DeviceRequests& m_requests;
    const NamePatience m_patience;
    /// How long the slowest answer took.
    std::optional<EventLoop::Clock::duration> m_slowest;
    const std::vector<ListedDevice> m_devices;
    std::vector<Lookup> m_lookups;
    bool m_isFound = false;
    std::size_t m_next = 0;
    std::size_t m_running = 0;
};

Error noDevice(const std::string& text, const std::vector<ListedDevice>& devices)
{
    if (devices.empty())
        return commandLineError({ .status = ExitStatus::NoDevice,
            .reason = "No device can be reached, so none matches \"" + text + "\".",
            .advice = kConnect });
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "No device matches \"" + text + "\".",
        .advice = "\"tidewell list\" shows the devices that can be reached. A device that this "
                  "computer is not paired with can be given by its UDID only." });
}

Error noAnswer(const std::string& text, const std::vector<ListedDevice>& silent)
{
    std::string udids;
    for (const ListedDevice& device : silent)
        udids += device.udid + "\n";
    return commandLineError({ .status = ExitStatus::TimedOut,
        .reason
        = "No device that answers is called \"" + text + "\". These do not answer:\n" + udids,
        .advice = "Unlock them and try again, or give the UDID." });
}

} // namespace

DeviceNames requestNames(
    DeviceRequests& requests, const std::vector<ListedDevice>& devices, NamePatience patience)
{
    const auto lookups = std::make_shared<NameLookups>(requests, devices, std::move(patience));
    lookups->goOn();
    requests.loop().runUntil([&] { return lookups->isDone(); });
    return lookups->names;
}

Result<ListedDevice> findDevice(DeviceRequests& requests, const std::string& text)
{
    TDW_TRY(validateDeviceText(text));
    const auto payload = TDW_TRY(requestDeviceList(requests));
    const auto devices = TDW_TRY(parseDeviceList(payload));
    if (const auto device = TDW_TRY(selectByUdid(text, devices)))
        return *device;
    if (isWholeUdid(text))
        return noDevice(text, devices);
    const auto names = requestNames(requests, devices, { .wanted = text });
    if (const auto device = TDW_TRY(selectByName(text, names.named)))
        return *device;
    return names.silent.empty() ? noDevice(text, devices) : noAnswer(text, names.silent);
}

Result<ListedDevice> findOnlyDevice(DeviceRequests& requests)
{
    const auto payload = TDW_TRY(requestDeviceList(requests));
    const auto devices = TDW_TRY(parseDeviceList(payload));
    if (devices.size() == 1)
        return devices.front();
    if (devices.empty())
        return commandLineError({ .status = ExitStatus::NoDevice,
            .reason = "No device can be reached.",
            .advice = kConnect });
    std::string candidates;
    for (const ListedDevice& device : devices)
        candidates += device.udid + "\n";
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "More than one device can be reached:\n" + candidates,
        .advice = "Give one of them." });
}

Result<ListedDevice> findDeviceOnCable(DeviceRequests& requests, const std::string& text)
{
    auto device = TDW_TRY(findDevice(requests, text));
    if (!device.isReachedBy(ConnectionType::Usb))
        return notReachableBy(ConnectionType::Usb, device);
    return device;
}

Error notReachableBy(ConnectionType connection, const ListedDevice& device)
{
    const bool isUsb = connection == ConnectionType::Usb;
    return commandLineError({ .status = ExitStatus::NoDevice,
        .reason = "\"" + device.udid + "\" cannot be reached over "
            + (isUsb ? "USB" : "the network") + " (only: " + connectionNames(device) + ").",
        .advice = isUsb ? "Connect the device with a cable."
                        : "Leave --connection out to reach it either way." });
}

} // namespace tdw::cli
