#include "Control/ControlProtocol.h"

#include "Model/JsonObject.h"
#include "Model/SimulatorError.h"

#include <algorithm>

namespace tdw::simulator {

namespace {

using Answer = ControlProtocol::Answer;

/// The device of an identifier, or the only one whose identifier begins so.
Result<SimulatedDevice*> findDevice(const std::string& udid, const Simulation& simulation)
{
    if (SimulatedDevice* device = simulation.device(udid))
        return device;
    std::vector<SimulatedDevice*> matches;
    for (const auto& device : simulation.devices()) {
        if (!udid.empty() && device->udid().starts_with(udid))
            matches.push_back(device.get());
    }
    if (matches.size() == 1)
        return matches.front();
    const std::string_view problem
        = matches.empty() ? "there is no device" : "several devices begin with";
    return simulatorError("device: " + std::string(problem) + " \"" + udid + "\"");
}

Result<SimulatedDevice*> takeDevice(JsonObject& object, const Simulation& simulation)
{
    return findDevice(TDW_TRY(object.requiredString("device")), simulation);
}

Result<std::optional<ConnectionType>> takeConnection(JsonObject& object)
{
    const auto word = TDW_TRY(object.word("connection", kConnectionTypeNames));
    return word ? std::optional(static_cast<ConnectionType>(*word)) : std::nullopt;
}

Result<LogFilter> takeFilter(JsonObject& object, const Simulation& simulation)
{
    LogFilter filter;
    filter.at = TDW_TRY(object.string("at"));
    if (const auto udid = TDW_TRY(object.string("device")))
        filter.device = TDW_TRY(findDevice(*udid, simulation))->udid();
    filter.request = TDW_TRY(object.string("request"));
    filter.after = TDW_TRY(object.number("after")).value_or(0);
    return filter;
}

Result<Answer> list(JsonObject& object, Simulation& simulation)
{
    TDW_TRY(object.refuseOtherKeys());
    Json devices = Json::array();
    for (const auto& device : simulation.devices()) {
        Json attachments = Json::array();
        for (const Attachment& attachment : simulation.attachments()) {
            if (attachment.device != device.get())
                continue;
            attachments.push_back({ { "deviceID", attachment.identifier },
                { "connection",
                    kConnectionTypeNames[static_cast<std::size_t>(attachment.type)] } });
        }
        devices.push_back({ { "device", device->udid() }, { "name", device->text("DeviceName") },
            { "trust", kTrustNames[static_cast<std::size_t>(device->trust().trust())] },
            { "dialogShown", device->trust().isShown() },
            { "pairRecord", simulation.pairRecords().find(device->udid()).has_value() },
            { "attachments", std::move(attachments) },
            { "networkAddress", device->networkAddress() } });
    }
    return Answer(ControlProtocol::success({ { "devices", std::move(devices) } }));
}

Result<Answer> attach(JsonObject& object, Simulation& simulation)
{
    SimulatedDevice* device = TDW_TRY(takeDevice(object, simulation));
    const auto type = TDW_TRY(takeConnection(object)).value_or(ConnectionType::Usb);
    TDW_TRY(object.refuseOtherKeys());
    const Attachment attachment = TDW_TRY(simulation.attach(*device, type));
    return Answer(ControlProtocol::success({ { "deviceID", attachment.identifier } }));
}

Result<Answer> detach(JsonObject& object, Simulation& simulation)
{
    SimulatedDevice* device = TDW_TRY(takeDevice(object, simulation));
    const auto type = TDW_TRY(takeConnection(object));
    TDW_TRY(object.refuseOtherKeys());
    if (type) {
        TDW_TRY(simulation.detach(*device, *type));
        return Answer(ControlProtocol::success());
    }
    const bool fromUsb = simulation.detach(*device, ConnectionType::Usb).hasValue();
    const bool fromNetwork = simulation.detach(*device, ConnectionType::Network).hasValue();
    if (!fromUsb && !fromNetwork)
        return simulatorError(device->udid() + " is not attached");
    return Answer(ControlProtocol::success());
}

Result<Answer> answerTrust(JsonObject& object, Simulation& simulation)
{
    static constexpr std::string_view kAnswers[] = { "accept", "deny" };
    SimulatedDevice* device = TDW_TRY(takeDevice(object, simulation));
    TDW_TRY(object.requiredString("answer"));
    const auto word = TDW_TRY(object.word("answer", kAnswers));
    TDW_TRY(object.refuseOtherKeys());
    simulation.answerTrust(*device, static_cast<TrustDialog::Answer>(*word));
    return Answer(ControlProtocol::success());
}

Result<Answer> setTrust(JsonObject& object, Simulation& simulation)
{
    SimulatedDevice* device = TDW_TRY(takeDevice(object, simulation));
    TDW_TRY(object.requiredString("trust"));
    const auto word = TDW_TRY(object.word("trust", kTrustNames));
    TDW_TRY(object.refuseOtherKeys());
    device->setTrust(static_cast<Trust>(*word));
    return Answer(ControlProtocol::success());
}

Result<Answer> setValue(JsonObject& object, Simulation& simulation)
{
    SimulatedDevice* device = TDW_TRY(takeDevice(object, simulation));
    const std::string domain
        = TDW_TRY(object.string("domain")).value_or(std::string(kGlobalDomain));
    const std::string key = TDW_TRY(object.requiredString("key"));
    const Json* value = object.take("value");
    if (!value)
        return simulatorError(object.pathOf("value") + ": this key is missing");
    const Value converted = TDW_TRY(valueFromJson(*value, object.pathOf("value"), {}));
    const auto companionIdentifier = TDW_TRY(object.string("watch"));
    TDW_TRY(object.refuseOtherKeys());
    if (!companionIdentifier) {
        device->values().set(domain, key, converted);
        return Answer(ControlProtocol::success());
    }
    CompanionDescription* companion = device->companion(*companionIdentifier);
    if (!companion) {
        return simulatorError(
            object.pathOf("watch") + ": there is no watch \"" + *companionIdentifier + "\"");
    }
    companion->values.set(key, converted);
    return Answer(ControlProtocol::success());
}

Result<Answer> removeValue(JsonObject& object, Simulation& simulation)
{
    SimulatedDevice* device = TDW_TRY(takeDevice(object, simulation));
    const std::string domain
        = TDW_TRY(object.string("domain")).value_or(std::string(kGlobalDomain));
    const std::string key = TDW_TRY(object.requiredString("key"));
    TDW_TRY(object.refuseOtherKeys());
    if (!device->values().remove(domain, key))
        return simulatorError(object.pathOf("key") + ": there is no value \"" + key + "\"");
    return Answer(ControlProtocol::success());
}

Result<Answer> clearFault(JsonObject& object, Simulation& simulation)
{
    const auto number = TDW_TRY(object.number("number", 1));
    TDW_TRY(object.refuseOtherKeys());
    if (!number)
        simulation.faults().clear();
    else if (!simulation.faults().remove(*number))
        return simulatorError(
            object.pathOf("number") + ": there is no fault " + std::to_string(*number));
    return Answer(ControlProtocol::success());
}

Result<Answer> log(JsonObject& object, Simulation& simulation)
{
    const LogFilter filter = TDW_TRY(takeFilter(object, simulation));
    TDW_TRY(object.refuseOtherKeys());
    Json entries = Json::array();
    for (const LogEntry& entry : simulation.log().entries(filter))
        entries.push_back(ControlProtocol::entryAsJson(entry));
    return Answer(ControlProtocol::success(
        { { "entries", std::move(entries) }, { "last", simulation.log().lastNumber() } }));
}

Result<Answer> wait(JsonObject& object, Simulation& simulation)
{
    WaitRequest request;
    request.filter = TDW_TRY(takeFilter(object, simulation));
    request.count = TDW_TRY(object.number("count", 1)).value_or(1);
    request.bound = std::chrono::milliseconds(std::min<std::uint64_t>(
        TDW_TRY(object.number("milliseconds", 1)).value_or(10'000), 3'600'000));
    TDW_TRY(object.refuseOtherKeys());
    return Answer(request);
}

struct Command {
    std::string_view name;
    Result<Answer> (*run)(JsonObject&, Simulation&);
};

constexpr Command kCommands[] = {
    { "list", list },
    { "attach", attach },
    { "detach", detach },
    { "answer-trust", answerTrust },
    { "set-trust", setTrust },
    { "set-value", setValue },
    { "remove-value", removeValue },
    { "clear-fault", clearFault },
    { "log", log },
    { "wait", wait },
};

} // namespace

ControlProtocol::Answer ControlProtocol::answer(std::string_view line)
{
    const auto json = parseJson(line);
    if (!json)
        return failure(json.error());
    auto answer = answerRequest(*json);
    if (!answer)
        return failure(answer.error());
    return *std::move(answer);
}

Result<ControlProtocol::Answer> ControlProtocol::answerRequest(const Json& json)
{
    JsonObject object = TDW_TRY(JsonObject::open(json, ""));
    const std::string name = TDW_TRY(object.requiredString("command"));
    if (name == "inject-fault") {
        // Everything beside the command describes the fault.
        Json description = json;
        description.erase("command");
        Fault fault = TDW_TRY(faultFromJson(description, "", {}));
        if (fault.device)
            fault.device = TDW_TRY(findDevice(*fault.device, m_simulation))->udid();
        const std::uint64_t number = m_simulation.faults().add(std::move(fault));
        TDW_TRY(m_faultsChanged());
        return Answer(success({ { "number", number } }));
    }
    for (const Command& command : kCommands) {
        if (command.name != name)
            continue;
        Answer answer = TDW_TRY(command.run(object, m_simulation));
        if (name == "clear-fault")
            TDW_TRY(m_faultsChanged());
        return answer;
    }
    std::vector<std::string_view> names { "inject-fault" };
    for (const Command& command : kCommands)
        names.push_back(command.name);
    return simulatorError("command: \"" + name + "\" is not one of " + joined(names));
}

Json ControlProtocol::success(Json content)
{
    content["ok"] = true;
    return content;
}

Json ControlProtocol::failure(const Error& error)
{
    return Json { { "ok", false }, { "error", error.failureReason() } };
}

Json ControlProtocol::entryAsJson(const LogEntry& entry)
{
    return Json { { "number", entry.number }, { "at", entry.at }, { "device", entry.device },
        { "request", entry.request }, { "message", jsonFromDictionary(entry.message) } };
}

} // namespace tdw::simulator
