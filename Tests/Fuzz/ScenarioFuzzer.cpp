#include "Fuzz.h"
#include "Model/Json.h"
#include "Model/Scenario.h"

/// A scenario is read or refused; its values survive being written as JSON.
void fuzz(std::span<const std::byte> bytes)
{
    const auto scenario = tdw::simulator::scenarioFromText(textOf(bytes), "/nonexistent");
    if (!scenario)
        return;
    for (const auto& device : scenario->devices) {
        for (const auto& [name, values] : device.domains) {
            const auto json = tdw::simulator::jsonFromDictionary(values);
            require(tdw::simulator::dictionaryFromJson(json, name, "/nonexistent").hasValue());
        }
    }
}
