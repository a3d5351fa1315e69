#pragma once

#include "Model/Fault.h"
#include "Model/PairRecordStore.h"
#include "Model/RequestLog.h"
#include "Model/Scenario.h"
#include "Model/SimulatedDevice.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// A device on one of its connections. Every attaching makes a new one.
struct Attachment {
    /// The multiplexer's number, from 1 on with each of its starts.
    std::uint32_t identifier = 0;
    SimulatedDevice* device = nullptr;
    ConnectionType type = ConnectionType::Usb;
    /// Counts attachings from 1, and is never used again.
    std::uint32_t number = 0;

    /// Counts from 0 what is plugged in to USB.
    std::uint32_t usbNumber = 0;

    /// Where the kernel puts it: devices get ascending addresses from 2 on, on the next bus when
    /// one is full.
    std::uint8_t usbBus() const { return static_cast<std::uint8_t>(1 + usbNumber / 126); }
    std::uint8_t usbAddress() const { return static_cast<std::uint8_t>(2 + usbNumber % 126); }

    /// Bus and address in one number, as the multiplexer tells them.
    std::uint32_t location() const
    {
        return static_cast<std::uint32_t>(usbBus()) << 16 | usbAddress();
    }
};

struct SimulationEvent {
    enum class Kind { Attached, Detached, Paired };
    Kind kind = Kind::Attached;
    Attachment attachment {};
};

/// How long phones have been seen to be away after the tap on "Trust".
inline constexpr std::chrono::milliseconds kReconnection { 700 };

/// What a simulation needs of the program around it. Without it, devices get no network addresses,
/// and nothing happens later.
struct SimulationEnvironment {
    /// Makes a device reachable before it appears on the network, and returns its address.
    std::function<Result<std::string>(const SimulatedDevice&)> openNetwork;

    /// Calls a function after a delay, on the simulation's thread.
    std::function<void(std::chrono::milliseconds, std::function<void()>)> later;
};

/// The simulated world: devices, what of them is attached, pair records, faults and the log.
///
/// Knows no socket; the servers around it observe its events. Used by the simulator's one thread.
class Simulation {
public:
    /// @param records where pair records are kept
    Simulation(Scenario scenario, const std::shared_ptr<const SimulatorKeys>& keys,
        const std::filesystem::path& records, SimulationEnvironment environment = {});

    AddressLayout addressLayout() const { return m_addressLayout; }
    MultiplexerRelease multiplexer() const { return m_multiplexer; }
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

    /// The user touches the device's trust dialog. A device that `reconnectsAfterTrust` leaves USB
    /// upon a consent, and is back under a new number after `kReconnection`.
    void answerTrust(SimulatedDevice& device, TrustDialog::Answer answer);

    /// The same without a dialog: it has come to trust a host.
    void reconnect(SimulatedDevice& device);

    /// Errors: it is not attached.
    Result<void> detach(SimulatedDevice& device, ConnectionType type);

    /// Says that the multiplexer has stored a host's record for a device.
    void announcePaired(const Attachment& attachment);

    /// Counts the multiplexer's identifiers from 1 again, because it has been started again.
    void renumber();

    PairRecordStore& pairRecords() { return m_pairRecords; }
    FaultTable& faults() { return m_faults; }
    RequestLog& log() { return m_log; }

    /// Logs what happened and says which fault strikes it.
    std::optional<Fault> reach(const FaultSite& site);

    /// `observer` is called for every event from now on, as long as the simulation lives.
    using Observer = std::function<void(const SimulationEvent&)>;
    void observe(Observer observer) { m_observers.push_back(std::move(observer)); }

    /// Calls a function after a delay, as long as the environment can.
    void later(std::chrono::milliseconds delay, std::function<void()> action) const;

    /// The multiplexer's clients that listen for devices, by number, as they described themselves.
    const std::map<std::uint64_t, Dictionary>& listeners() const { return m_listeners; }
    void addListener(std::uint64_t client, Dictionary description);
    void removeListener(std::uint64_t client) { m_listeners.erase(client); }

private:
    /// Makes the host's side and the device's side know each other from the beginning.
    void storePairing(SimulatedDevice& device, Dictionary record);

    void announce(SimulationEvent::Kind kind, const Attachment& attachment);

    AddressLayout m_addressLayout;
    MultiplexerRelease m_multiplexer;
    std::string m_systemBuid;
    std::vector<std::unique_ptr<SimulatedDevice>> m_devices;
    std::vector<Attachment> m_attachments;
    std::uint32_t m_lastIdentifier = 0;
    std::uint32_t m_lastNumber = 0;
    std::uint32_t m_nextUsbNumber = 0;
    PairRecordStore m_pairRecords;
    FaultTable m_faults;
    RequestLog m_log;
    std::vector<Observer> m_observers;
    SimulationEnvironment m_environment;
    std::map<std::uint64_t, Dictionary> m_listeners;
};

} // namespace tdw::simulator
