#include "StandInSettings.h"

#include <orv/common/json/JsonNode.h>

namespace orv::modbusd {
namespace {

using common::JsonNode;

SimulatorSettings readSimulator(const JsonNode& simulator)
{
    simulator.expectOnlyKeys({"enabled", "periodMs", "channels", "powerDistribution"});
    SimulatorSettings result;
    result.enabled = simulator.booleanOr("enabled", false);
    result.period = std::chrono::milliseconds(simulator.integerOr("periodMs", 10, 3'600'000, 1000));
    if (const auto channels = simulator.optionalMember("channels")) {
        for (const JsonNode& channel : channels->elements()) {
            channel.expectOnlyKeys({"device", "channel", "min", "max"});
            result.channels.push_back({channel.member("device").text(), channel.member("channel").text(),
                                       static_cast<float>(channel.member("min").number()),
                                       static_cast<float>(channel.member("max").number())});
        }
    }
    if (const auto service = simulator.optionalMember("powerDistribution")) {
        service->expectOnlyKeys({"device", "inServiceAfterMs"});
        result.powerDistribution = SimulatedService{
            service->member("device").text(),
            std::chrono::milliseconds(service->integerOr("inServiceAfterMs", 0, 86'400'000, 20'000))};
    }
    return result;
}

} // namespace

StandInSettings StandInSettings::read(const common::JsonNode& dataStore, const std::filesystem::path& base)
{
    dataStore.expectOnlyKeys({"seedFile", "simulator"});
    StandInSettings result;
    if (const auto seed = dataStore.optionalMember("seedFile")) {
        result.seedFile = seed->pathFrom(base);
    }
    if (const auto simulator = dataStore.optionalMember("simulator")) {
        result.simulator = readSimulator(*simulator);
    }
    return result;
}

} // namespace orv::modbusd
