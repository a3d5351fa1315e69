#include "Model/Simulation.h"

#include "Model/SimulatorError.h"
#include "Platform/Values/PropertyList.h"
#include "Trust/Pairing.h"

#include <algorithm>
#include <cassert>

namespace tdw::simulator {

namespace {

std::string described(const SimulatedDevice& device, ConnectionType type)
{
    return device.udid() + " (" + std::string(kConnectionTypeNames[static_cast<int>(type)]) + ")";
}

} // namespace

Simulation::Simulation(Scenario scenario, const std::shared_ptr<const SimulatorKeys>& keys,
    const std::filesystem::path& records, SimulationEnvironment environment)
    : m_addressLayout(scenario.addressLayout)
    , m_multiplexer(scenario.multiplexer)
    , m_systemBuid(std::move(scenario.systemBuid))
    , m_pairRecords(records)
    , m_environment(std::move(environment))
{
    m_pairRecords.saveSystemBuid(m_systemBuid);
    std::optional<Dictionary> record;
    for (DeviceDescription& description : scenario.devices) {
        m_devices.push_back(std::make_unique<SimulatedDevice>(std::move(description), keys));
        SimulatedDevice& device = *m_devices.back();
        if (!device.description().isPaired)
            continue;
        // One host, one set of certificates: they are the same for all its devices.
        if (!record)
            record = makePairRecord(*keys, m_systemBuid);
        storePairing(device, *record);
    }
    for (Fault& fault : scenario.faults)
        m_faults.add(std::move(fault));
}

void Simulation::storePairing(SimulatedDevice& device, Dictionary record)
{
    record.set("WiFiMACAddress", device.text("WiFiAddress"));
    m_pairRecords.save(device.udid(), record);
    if (device.trust().trust() == Trust::ForgotHost)
        return;
    const auto wrong = device.pairings().add(record);
    assert(!wrong);
    (void)wrong;
}

SimulatedDevice* Simulation::device(std::string_view udid) const
{
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
        [&](const auto& device) { return device->udid() == udid; });
    return found == m_devices.end() ? nullptr : found->get();
}

std::optional<Attachment> Simulation::attachment(std::uint32_t identifier) const
{
    const auto found = std::find_if(m_attachments.begin(), m_attachments.end(),
        [&](const Attachment& attachment) { return attachment.identifier == identifier; });
    return found == m_attachments.end() ? std::nullopt : std::optional(*found);
}

std::optional<Attachment> Simulation::attachment(
    const SimulatedDevice& device, ConnectionType type) const
{
    const auto found = std::find_if(
        m_attachments.begin(), m_attachments.end(), [&](const Attachment& attachment) {
            return attachment.device == &device && attachment.type == type;
        });
    return found == m_attachments.end() ? std::nullopt : std::optional(*found);
}

Result<void> Simulation::attachInitialDevices()
{
    for (const auto& device : m_devices) {
        for (const ConnectionType type : device->description().connections)
            TDW_TRY(attach(*device, type));
    }
    return {};
}

Result<Attachment> Simulation::attach(SimulatedDevice& device, ConnectionType type)
{
    if (attachment(device, type))
        return simulatorError(described(device, type) + " is attached already");
    if (type == ConnectionType::Network && m_environment.openNetwork)
        device.setNetworkAddress(TDW_TRY(m_environment.openNetwork(device)));
    const std::uint32_t usbNumber = type == ConnectionType::Usb ? m_nextUsbNumber++ : 0;
    const Attachment attachment { ++m_lastIdentifier, &device, type, ++m_lastNumber, usbNumber };
    m_attachments.push_back(attachment);
    announce(SimulationEvent::Kind::Attached, attachment);
    return attachment;
}

Result<void> Simulation::detach(SimulatedDevice& device, ConnectionType type)
{
    const auto attached = attachment(device, type);
    if (!attached)
        return simulatorError(described(device, type) + " is not attached");
    std::erase_if(m_attachments, [&](const Attachment& attachment) {
        return attachment.identifier == attached->identifier;
    });
    device.trust().forgetAnswer();
    announce(SimulationEvent::Kind::Detached, *attached);
    return {};
}

void Simulation::answerTrust(SimulatedDevice& device, TrustDialog::Answer answer)
{
    device.answerTrust(answer);
    if (answer == TrustDialog::Answer::Accept)
        reconnect(device);
}

void Simulation::reconnect(SimulatedDevice& device)
{
    if (!device.description().reconnectsAfterTrust || !m_environment.later
        || !detach(device, ConnectionType::Usb))
        return;
    later(kReconnection, [this, &device] { (void)attach(device, ConnectionType::Usb); });
}

void Simulation::later(std::chrono::milliseconds delay, std::function<void()> action) const
{
    if (m_environment.later)
        m_environment.later(delay, std::move(action));
}

void Simulation::addListener(std::uint64_t client, Dictionary description)
{
    m_listeners.insert_or_assign(client, std::move(description));
}

void Simulation::announcePaired(const Attachment& attachment)
{
    announce(SimulationEvent::Kind::Paired, attachment);
}

void Simulation::renumber()
{
    m_lastIdentifier = 0;
    for (Attachment& attachment : m_attachments)
        attachment.identifier = ++m_lastIdentifier;
}

std::optional<Fault> Simulation::reach(const FaultSite& site)
{
    m_log.add(site);
    return m_faults.take(site);
}

void Simulation::announce(SimulationEvent::Kind kind, const Attachment& attachment)
{
    static constexpr std::string_view kNames[] = { "Attached", "Detached", "Paired" };
    const Dictionary message { { "DeviceID", attachment.identifier },
        { "ConnectionType", kConnectionTypeNames[static_cast<int>(attachment.type)] } };
    m_log.add(FaultSite {
        "simulator", attachment.device->udid(), kNames[static_cast<int>(kind)], &message });
    for (const Observer& observer : m_observers)
        observer(SimulationEvent { kind, attachment });
}

} // namespace tdw::simulator
