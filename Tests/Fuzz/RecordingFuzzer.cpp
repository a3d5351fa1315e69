#include "Fuzz.h"
#include "Model/Scenario.h"
#include "Platform/Values/PropertyList.h"
#include "Recording/RecordedScenario.h"

#include <random>

/// Whatever a device tells, a recording of it is made, which is played or refused.
void fuzz(std::span<const std::byte> bytes)
{
    using namespace tdw::simulator;
    const auto reading
        = bytes.size() > kSmallDocument ? tdw::Value(false) : tdw::decodePropertyList(bytes);
    if (!reading || reading->asDictionary() == nullptr)
        return;
    Replacement replacement([engine = std::mt19937_64(1)](std::uint64_t bound) mutable {
        return std::uniform_int_distribution<std::uint64_t>(0, bound - 1)(engine);
    });
    const Json scenario = recordedScenario({ *reading->asDictionary() }, replacement);
    (void)scenarioFromText(scenario.dump(-1, ' ', false, Json::error_handler_t::replace), {});
}
