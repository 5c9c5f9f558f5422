#include "CdsapiFixture.h"

#include <cdsapi/DataAlarms.h>
#include <cdsapi/DataStore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace cdsapi::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const char* const g_goodSeed = R"({
  "devices": [
    {
      "id": 100,
      "name": "ups",
      "attributes": {"Model": "PowerBox", "Manufacturer": "ACME", "42": "custom"},
      "channels": [
        {"id": 101, "name": "Voltage", "kind": "float", "value": 230.5,
         "alarm": {"enabled": true, "thresholds": [1, 2.5, 3, 4], "thresholdEnabled": true,
                   "hysteresis": 0.5, "level": 3,
                   "active": [{"code": 7, "flag": 1, "threshold": 3}]}},
        {"name": "Status", "kind": "uint32", "value": 4000000000},
        {"name": "Temperature", "kind": "int32", "value": -40},
        {"name": "OnBattery", "kind": "bool", "value": true},
        {"name": "Label", "kind": "string", "value": "main"},
        {"name": "Unset", "kind": "float"}
      ],
      "devices": [
        {"name": "battery", "devices": [{"name": "cell1"}]},
        {"id": 200, "name": "inverter"}
      ]
    },
    {"name": "meter"}
  ]
})";

class DataStoreSeedTest : public CdsapiFixture {
protected:
    // Everything the store holds, as text, to check that a refused seed
    // changed nothing.
    std::string snapshot() const
    {
        std::ostringstream out;
        for (const auto root : store.getRootDevicesIds()) {
            describeDevice(root, out);
        }
        return out.str();
    }

    void describeDevice(std::uint64_t id, std::ostringstream& out) const
    {
        const auto device = store.getDevice(id);
        out << "device " << id << " " << device.canonicalName << " parent " << device.parentId << "\n";
        for (std::uint32_t attribute = 0; attribute <= 64; ++attribute) {
            const auto text = store.getDeviceAttribute(id, DeviceAttribute(attribute));
            if (!text.empty()) {
                out << " attribute " << attribute << "=" << text << "\n";
            }
        }
        for (const auto channelId : store.getChannelsIds(id)) {
            const auto alarm = store.getChannelAlarmSettings(channelId);
            out << " channel " << channelId << " " << store.getChannel(channelId).canonicalName << "="
                << store.getChannelCValue(channelId).as_string() << " alarm " << alarm.enabled << " "
                << alarm.hysteresis << " active " << store.getActiveAlarms(channelId).size() << "\n";
        }
        for (const auto subDevice : store.getSubDevicesIds(id, 1)) {
            describeDevice(subDevice, out);
        }
    }

    // Loads a bad seed and returns the refusal's message, checking that the
    // store did not change.
    std::string refusal(const std::string& json)
    {
        const auto before = snapshot();
        std::string message;
        try {
            store.loadSeed(json, "seed.json");
            ADD_FAILURE() << "seed accepted: " << json;
        } catch (const std::runtime_error& error) {
            message = error.what();
        }
        EXPECT_EQ(snapshot(), before);
        return message;
    }
};

TEST_F(DataStoreSeedTest, GoodSeedLoadsTheWholeTree)
{
    store.loadSeed(g_goodSeed, "seed.json");

    const auto ups = client->getDeviceByName("ups");
    EXPECT_EQ(ups, 100u);
    EXPECT_EQ(client->getDeviceAttribute(ups, DeviceAttribute::Model), "PowerBox");
    EXPECT_EQ(client->getDeviceAttribute(ups, DeviceAttribute::Manufacturer), "ACME");
    EXPECT_EQ(client->getDeviceAttribute(ups, DeviceAttribute(42)), "custom");

    EXPECT_EQ(client->getChannelId(ups, "Voltage"), 101u);
    EXPECT_EQ(client->getChannelCValue(101), zu::CValue(230.5f));
    EXPECT_TRUE(client->getChannelAlarmEnabled(101));
    EXPECT_EQ(client->getChannelAlarmTriggerThreshold(101, TriggerId::Trigger1), 2.5f);
    EXPECT_TRUE(client->getChannelAlarmTriggerThreshold(101));
    EXPECT_EQ(client->getChannelAlarmHysteresis(101), 0.5f);
    EXPECT_EQ(client->getChannelAlarmLevel(101), LevelAlarm::Alarm);
    EXPECT_EQ(DataAlarms(*client).getMostCritical(101).value_or(zu::CAlarmTrigger{}), (zu::CAlarmTrigger{7, 1, 3.0f}));

    EXPECT_EQ(client->getChannelCValue(client->getChannelId(ups, "Status")), zu::CValue(std::uint32_t{4000000000}));
    EXPECT_EQ(client->getChannelCValue(client->getChannelId(ups, "Temperature")), zu::CValue(std::int32_t{-40}));
    EXPECT_EQ(client->getChannelCValue(client->getChannelId(ups, "OnBattery")), zu::CValue(true));
    EXPECT_EQ(client->getChannelCValue(client->getChannelId(ups, "Label")), zu::CValue("main"));
    EXPECT_EQ(client->getChannelCValue(client->getChannelId(ups, "Unset")), zu::CValue(0.0f));

    const auto battery = client->getDeviceByName("battery");
    const auto cell = client->getDeviceByName("cell1");
    EXPECT_THAT(client->getSubDevicesIds(ups, 1), ElementsAre(battery, 200u));
    EXPECT_THAT(client->getSubDevicesIds(ups, 5), ElementsAre(battery, cell, 200u));
    EXPECT_EQ(client->getDevice(cell).parentId, battery);
    EXPECT_EQ(client->getDevice(client->getDeviceByName("meter")).parentId, 0u);
}

TEST_F(DataStoreSeedTest, SeedIdsAreKeptAwayFromAllocation)
{
    store.clear();
    // The first device has no id; it must not take the 1 the second asks for.
    store.loadSeed(R"({"devices": [{"name": "a"}, {"id": 1, "name": "b"}]})", "seed.json");
    EXPECT_EQ(client->getDeviceByName("b"), 1u);
    EXPECT_NE(client->getDeviceByName("a"), 1u);
}

TEST_F(DataStoreSeedTest, LoadingNotifiesTheCreations)
{
    watchDevice(g_allOnes, zu::sub::device_creation);
    store.loadSeed(R"({"devices": [{"id": 300, "name": "a", "devices": [{"id": 301, "name": "b"}]}]})",
                   "seed.json");
    EXPECT_THAT(settle(), ElementsAre(text(13, 300), text(13, 301)));
}

TEST_F(DataStoreSeedTest, SeedFileIsLoadedFromDisk)
{
    const std::string path = std::string(ORV_TEST_BINARY_DIR) + "/DataStoreSeedTest-good.json";
    std::ofstream(path) << g_goodSeed;
    store.loadSeedFile(path);
    EXPECT_EQ(client->getDeviceByName("inverter"), 200u);
    std::filesystem::remove(path);
}

TEST_F(DataStoreSeedTest, BadSeedFileIsRefusedWithItsNameAndPath)
{
    const std::string path = std::string(ORV_TEST_BINARY_DIR) + "/DataStoreSeedTest-bad.json";
    std::ofstream(path) << R"({"devices": [{"name": "a"}, {"name": "b", "channels": [{"name": "c", "kind": "flaot"}]}]})";
    const auto before = snapshot();
    try {
        store.loadSeedFile(path);
        ADD_FAILURE() << "seed accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), path + ": /devices/1/channels/0/kind: unknown kind \"flaot\"");
    }
    EXPECT_EQ(snapshot(), before);
    EXPECT_THROW(client->getDeviceByName("a"), CdsError);
    std::filesystem::remove(path);
}

TEST_F(DataStoreSeedTest, MissingFileIsRefused)
{
    const std::string path = std::string(ORV_TEST_BINARY_DIR) + "/no-such-seed.json";
    try {
        store.loadSeedFile(path);
        ADD_FAILURE() << "missing file accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), path + ": cannot be read");
    }
}

TEST_F(DataStoreSeedTest, NotJsonIsRefused)
{
    EXPECT_THAT(refusal(R"({"devices": [{"name": "a"})"), HasSubstr("seed.json: not valid JSON"));
    EXPECT_THAT(refusal(""), HasSubstr("seed.json: not valid JSON"));
    EXPECT_THAT(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": 1e340}]}]})"),
                HasSubstr("seed.json: not valid JSON"));
}

TEST_F(DataStoreSeedTest, WrongTypesAreRefused)
{
    EXPECT_EQ(refusal(R"([])"), "seed.json: /: expected an object");
    EXPECT_EQ(refusal(R"({"devices": {}})"), "seed.json: /devices: expected an array");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a"}, 5]})"), "seed.json: /devices/1: expected an object");
    EXPECT_EQ(refusal(R"({"devices": [{"name": 5}]})"), "seed.json: /devices/0/name: expected a string");
    EXPECT_EQ(refusal(R"({"devices": [{"name": ""}]})"), "seed.json: /devices/0/name: expected a non-empty string");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "id": "7"}]})"),
              "seed.json: /devices/0/id: expected a non-negative integer, got \"7\"");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "attributes": {"Model": 3}}]})"),
              "seed.json: /devices/0/attributes/Model: expected a string");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "bool", "value": 1}]}]})"),
              "seed.json: /devices/0/channels/0/value: expected true or false");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "float", "value": "1"}]}]})"),
              "seed.json: /devices/0/channels/0/value: expected a number");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "int32", "value": 2147483648}]}]})"),
              "seed.json: /devices/0/channels/0/value: expected an integer from -2147483648 to 2147483647, got 2147483648");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "uint32", "value": -1}]}]})"),
              "seed.json: /devices/0/channels/0/value: expected an integer from 0 to 4294967295, got -1");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "string", "value": 1}]}]})"),
              "seed.json: /devices/0/channels/0/value: expected a string");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "float",
                          "alarm": {"thresholds": [1, 2, 3]}}]}]})"),
              "seed.json: /devices/0/channels/0/alarm/thresholds: expected exactly 4 numbers");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "float",
                          "alarm": {"active": [{"code": 1, "flag": 256}]}}]}]})"),
              "seed.json: /devices/0/channels/0/alarm/active/0/flag: expected an integer from 0 to 255, got 256");
}

TEST_F(DataStoreSeedTest, UnknownKindIsRefused)
{
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a"}, {"name": "b", "channels": [{"name": "c", "kind": "flaot"}]}]})"),
              "seed.json: /devices/1/channels/0/kind: unknown kind \"flaot\"");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c"}]}]})"),
              "seed.json: /devices/0/channels/0: missing key \"kind\"");
}

TEST_F(DataStoreSeedTest, MissingNameIsRefused)
{
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "devices": [{"id": 5}]}]})"),
              "seed.json: /devices/0/devices/0: missing key \"name\"");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"kind": "bool"}]}]})"),
              "seed.json: /devices/0/channels/0: missing key \"name\"");
    EXPECT_EQ(refusal(R"({})"), "seed.json: /: missing key \"devices\"");
}

TEST_F(DataStoreSeedTest, DuplicateIdIsRefused)
{
    EXPECT_EQ(refusal(R"({"devices": [{"id": 10, "name": "a", "channels": [{"id": 10, "name": "c", "kind": "bool"}]}]})"),
              "seed.json: /devices/0/channels/0/id: duplicate id 10");
    // An id the store already uses: checked before anything is created.
    const auto used = store.createDevice("existing");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a"}, {"id": )" + std::to_string(used) + R"(, "name": "b"}]})"),
              "seed.json: /devices/1/id: id " + std::to_string(used) + " is already in use");
    EXPECT_EQ(refusal(R"({"devices": [{"id": 0, "name": "a"}]})"), "seed.json: /devices/0/id: id 0 is reserved");
    EXPECT_EQ(refusal(R"({"devices": [{"id": 18446744073709551615, "name": "a"}]})"),
              "seed.json: /devices/0/id: id 18446744073709551615 is reserved");
}

TEST_F(DataStoreSeedTest, OtherBadShapesAreRefused)
{
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "chanels": []}]})"),
              "seed.json: /devices/0/chanels: unknown key (known here: id, name, attributes, channels, devices)");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "attributes": {"Modle": "x"}}]})"),
              "seed.json: /devices/0/attributes/Modle: unknown attribute \"Modle\"");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "channels": [{"name": "c", "kind": "bool"},
                                                               {"name": "c", "kind": "int32"}]}]})"),
              "seed.json: /devices/0/channels/1/name: duplicate channel name \"c\"");
    EXPECT_EQ(refusal(R"({"devices": [{"name": "a", "attributes": {"a/b": "x"}}]})"),
              "seed.json: /devices/0/attributes/a~1b: unknown attribute \"a/b\"");
}

} // namespace
} // namespace cdsapi::test
