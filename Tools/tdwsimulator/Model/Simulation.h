#pragma once

#include "Model/Fault.h"
#include "Model/PairRecordStore.h"
#include "Model/RequestLog.h"
#include "Model/Scenario.h"
#include "Model/SimulatedDevice.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// A device on one of its connections: what the multiplexer lists. Every attaching makes a new
/// identifier.
struct Attachment {
    std::uint32_t identifier = 0;
    SimulatedDevice* device = nullptr;
    ConnectionType type = ConnectionType::Usb;
};

struct SimulationEvent {
    enum class Kind { Attached, Detached, Paired };
    Kind kind = Kind::Attached;
    Attachment attachment {};
};

/// The simulated world: devices, what of them is attached, pair records, faults and the log.
///
/// Knows no socket; the servers around it observe its events. Used by the simulator's one thread.
class Simulation {
public:
    Simulation(Scenario scenario, const std::shared_ptr<const SimulatorKeys>& keys);

    AddressLayout addressLayout() const { return m_addressLayout; }
    const std::string& systemBuid() const { return m_systemBuid; }
    const std::vector<std::unique_ptr<SimulatedDevice>>& devices() const { return m_devices; }

    /// The device, or null.
    SimulatedDevice* device(std::string_view udid) const;

    /// What is attached now, in the order of attaching.
    const std::vector<Attachment>& attachments() const { return m_attachments; }
    std::optional<Attachment> attachment(std::uint32_t identifier) const;
    std::optional<Attachment> attachment(const SimulatedDevice& device, ConnectionType type) const;

    /// Attaches what the scenario says is attached at its beginning.
    Result<void> attachInitialDevices();

    /// Errors: it is attached already; no address for a network device is to be had.
    Result<Attachment> attach(SimulatedDevice& device, ConnectionType type);

    /// Errors: it is not attached.
    Result<void> detach(SimulatedDevice& device, ConnectionType type);

    /// Stores a host's record and tells the observers that the device is paired now.
    void savePairRecord(std::string_view udid, Data record);

    PairRecordStore& pairRecords() { return m_pairRecords; }
    FaultTable& faults() { return m_faults; }
    RequestLog& log() { return m_log; }

    /// Logs what happened and says which fault strikes it.
    std::optional<Fault> occurred(const Occurrence& occurrence);

    /// `observer` is called for every event from now on, as long as the simulation lives.
    using Observer = std::function<void(const SimulationEvent&)>;
    void observe(Observer observer) { m_observers.push_back(std::move(observer)); }

    /// Called before a device appears on the network, to make it reachable: must set the device's
    /// address.
    std::function<Result<void>(SimulatedDevice&)> openNetwork;

    /// The multiplexer's clients that listen for devices, as they described themselves.
    std::map<std::uint64_t, Dictionary> listeners;

private:
    /// Makes the host's side and the device's side know each other from the beginning.
    void storePairing(SimulatedDevice& device, Dictionary record);

    void announce(SimulationEvent::Kind kind, const Attachment& attachment);

    AddressLayout m_addressLayout;
    std::string m_systemBuid;
    std::vector<std::unique_ptr<SimulatedDevice>> m_devices;
    std::vector<Attachment> m_attachments;
    std::uint32_t m_lastIdentifier = 0;
    PairRecordStore m_pairRecords;
    FaultTable m_faults;
    RequestLog m_log;
    std::vector<Observer> m_observers;
};

} // namespace tdw::simulator
