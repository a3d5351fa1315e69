#include "Doctor/Doctor.h"

#include "Devices/DeviceList.h"
#include "Devices/DeviceLookup.h"
#include "Devices/DeviceSelection.h"
#include "Doctor/ComputerChecks.h"
#include "Doctor/DeviceChecks.h"
#include "Errors/Advice.h"
#include "Errors/CommandLineError.h"
#include "Multiplexer/UsbBus.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace tdw::cli {

namespace {

/// Asks the devices side by side, and waits for all; each answer has its own bound.
std::vector<DeviceProbe> probe(DeviceRequests& requests, const std::vector<std::string>& udids)
{
    // Shared with handlers that run late.
    const auto probes = std::make_shared<std::vector<DeviceProbe>>();
    const auto missing = std::make_shared<std::size_t>(udids.size() * 2);
    for (const std::string& udid : udids)
        probes->push_back({ .udid = udid, .steps = {} });
    for (std::size_t i = 0; i < udids.size(); ++i) {
        requests.multiplexer().findPairRecord(udids[i], [=](Result<bool> found) {
            (*probes)[i].hasRecord = std::move(found);
            --*missing;
        });
        requests.send(DeviceInfoQuery { .udid = udids[i], .mayPair = false, .diagnoses = true },
            [=](Result<Value> info) {
                (*probes)[i].info = std::move(info);
                --*missing;
            });
    }
    requests.loop().runUntil([&] { return *missing == 0; });
    return *probes;
}

/// Those to look at: the one that is meant, or all.
Result<std::vector<std::string>> chosen(DeviceRequests& requests,
    const std::optional<std::string>& text, const std::vector<std::string>& listed)
{
    if (!text)
        return listed;
    return std::vector<std::string> { TDW_TRY(findDevice(requests, *text)).udid };
}

/// What takes the place of a finding that is not true any more.
void replace(Findings& findings, Finding finding)
{
    const auto found = std::ranges::find(findings, finding.check, &Finding::check);
    if (found != findings.end())
        *found = std::move(finding);
}

/// Whether the servers can read the list that the multiplexer answers with.
std::optional<Finding> unreadableList(DeviceRequests& requests)
{
    const auto list = requestDeviceList(requests);
    if (list || exitStatusOf(list.error()) != ExitStatus::MultiplexerUnavailable)
        return std::nullopt;
    const auto chain = causeChain(list.error());
    Finding finding { .check = "multiplexer", .health = Health::Failure };
    finding.text = chain[std::min<std::size_t>(1, chain.size() - 1)].failureReason();
    finding.remedy = adviceFor(list.error());
    finding.error = list.error();
    return finding;
}

class Doctor {
public:
    Doctor(DeviceRequests& requests, TraceListener* trace)
        : m_requests(requests)
        , m_trace(trace)
    {
    }

    void examineComputer()
    {
        m_multiplexer = checkMultiplexer(m_requests.loop(), m_requests.multiplexer());
        const bool isFromEnvironment = m_requests.multiplexer().address().isFromEnvironment;
        m_examined.findings.push_back(checkBus(sysfsRoot(), m_multiplexer, isFromEnvironment));
        m_examined.findings.push_back(checkDaemon(!isFromEnvironment && !m_multiplexer.isWorking));
        m_examined.findings.push_back(m_multiplexer.finding);
        m_examined.findings.push_back(checkLibraries());
        m_examined.findings.push_back(checkClock(std::chrono::system_clock::now()));
        m_examined.findings.push_back(checkServers());
        auto service = checkService();
        std::ranges::move(service.findings, std::back_inserter(m_examined.findings));
        m_examined.devices = m_multiplexer.devices;
        m_examined.isServiceUsable = service.isUsable;
        if (!service.isUsable)
            m_direct = std::make_unique<DeviceRequests>(
                DeviceRequests::Transport::Direct, *EventLoop::create());
    }

    Result<void> examineDevices(const std::optional<std::string>& device)
    {
        if (device)
            TDW_TRY(validateDeviceText(*device));
        if (!m_multiplexer.isWorking)
            return {};
        DeviceRequests& requests = m_direct ? *m_direct : m_requests;
        if (auto unreadable = unreadableList(requests))
            replace(m_examined.findings, *std::move(unreadable));
        const auto udids = chosen(requests, device, m_multiplexer.devices);
        if (!udids) {
            m_examined.findings.push_back({ .check = "reachable",
                .health = Health::Failure,
                .text = causeChain(udids.error()).back().failureReason(),
                .remedy = adviceFor(udids.error()),
                .device = *device,
                .error = udids.error() });
            return {};
        }
        auto probes = probe(requests, *udids);
        if (std::ranges::any_of(probes, [](const DeviceProbe& each) { return !each.info; }))
            lookAgain(probes);
        for (DeviceProbe& each : probes) {
            if (m_trace)
                each.steps = m_trace->steps();
            std::ranges::move(deviceFindings(each), std::back_inserter(m_examined.findings));
            if (each.info)
                m_examined.answers.push_back(*each.info);
        }
        return {};
    }

    Examined result() { return std::move(m_examined); }

private:
    /// Devices go meanwhile, and a multiplexer that ends takes every device along.
    void lookAgain(std::vector<DeviceProbe>& probes)
    {
        auto again = checkMultiplexer(m_requests.loop(), m_requests.multiplexer());
        for (DeviceProbe& each : probes)
            each.isGone
                = !each.info && std::ranges::find(again.devices, each.udid) == again.devices.end();
        if (again.isWorking)
            return;
        again.finding.health = Health::Failure;
        again.finding.text = "ended while it was looked at: " + again.finding.text;
        replace(m_examined.findings, std::move(again.finding));
    }

    DeviceRequests& m_requests;
    TraceListener* m_trace;
    std::unique_ptr<DeviceRequests> m_direct;
    MultiplexerCheck m_multiplexer;
    Examined m_examined;
};

} // namespace

Result<Examined> examine(
    DeviceRequests& requests, const std::optional<std::string>& device, TraceListener* trace)
{
    Doctor doctor(requests, trace);
    doctor.examineComputer();
    TDW_TRY(doctor.examineDevices(device));
    return doctor.result();
}

} // namespace tdw::cli
