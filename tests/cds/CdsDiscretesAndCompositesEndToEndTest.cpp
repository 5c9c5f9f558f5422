// Coils, discrete inputs and register composites of a map over the real
// data store, answered by processRequest on a real libmodbus connection:
// function codes 1, 2, 5 and 15 for the discretes, 3 and 16 for the register
// composites, from a client's write to the data store and from a driver's
// change to a client's read.
#include "BooleanDataPoints.h"
#include "CdsServedMapTest.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>
#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

using Bits = std::vector<uint8_t>;
using Values = std::vector<zu::CValue>;
using Words = std::vector<uint16_t>;

constexpr uint16_t g_relay = 0;
constexpr uint16_t g_invertedRelay = 1;
constexpr uint16_t g_inputs = 2;
constexpr uint16_t g_apparentPower = 10;
constexpr uint16_t g_statusWord = 11;

Words apparentPower(const Values& values)
{
    return {static_cast<uint16_t>(std::lround(values[0].as_float() * values[1].as_float()))};
}

Words packedBits(const Values& values)
{
    uint16_t word = 0;
    for (std::size_t bit = 0; bit < values.size(); ++bit) {
        word = static_cast<uint16_t>(word | (values[bit].as_bool() ? 1u << bit : 0u));
    }
    return {word};
}

Values unpackedBits(const Words& words)
{
    return {zu::CValue((words[0] & 1u) != 0), zu::CValue((words[0] & 2u) != 0), zu::CValue((words[0] & 4u) != 0)};
}

class CdsDiscretesAndCompositesEndToEndTest : public CdsServedMapTest {
protected:
    void SetUp() override
    {
        CdsServedMapTest::SetUp();
        const auto device = store().createDevice("panel");
        relay = store().addChannel(device, "Relay", zu::CValue(false));
        otherRelay = store().addChannel(device, "OtherRelay", zu::CValue(false));
        inputs = {store().addChannel(device, "A", zu::CValue(true)), store().addChannel(device, "B", zu::CValue(false)),
                  store().addChannel(device, "C", zu::CValue(true))};
        voltage = store().addChannel(device, "Voltage", zu::CValue(230.0f));
        current = store().addChannel(device, "Current", zu::CValue(12.5f));

        const auto point = [device](const char* name) {
            return new CdsChannelAccessor(device, name, DataType::ChannelValue);
        };
        const auto threeInputs = [&] { return std::vector<CdsDataAccessor*>{point("A"), point("B"), point("C")}; };
        const std::vector<ModbusMapEntry*> entries{
            new Discretes(g_relay,
                          new CdsBooleanToOneDiscreteAccessor(std::shared_ptr<CdsDataAccessor>(point("Relay")),
                                                              DiscreteModifier::None),
                          true, "relay", "Relay", "closed", "open"),
            new Discretes(g_invertedRelay,
                          new CdsBooleanToOneDiscreteAccessor(std::shared_ptr<CdsDataAccessor>(point("OtherRelay")),
                                                              DiscreteModifier::Inverted),
                          true, "other relay", "Other relay, inverted", "open", "closed"),
            new Discretes(g_inputs,
                          new CdsDataToDiscretesAccessor(3, threeInputs(), eachAsBit, eachAsBoolean,
                                                         MissingAccessorPolicy::AllExisting),
                          true, "inputs", "Three inputs", "on", "off"),
            new HoldingRegisters(g_apparentPower,
                                 new CdsDataToRegistersAccessor(1, {point("Voltage"), point("Current")},
                                                                apparentPower, nullptr, nullptr, "VA",
                                                                MissingAccessorPolicy::AllExisting),
                                 false, "apparent power", "Voltage times current", "VA"),
            new HoldingRegisters(g_statusWord,
                                 new CdsDataToRegistersAccessor(1, threeInputs(), packedBits, unpackedBits, nullptr,
                                                                "", MissingAccessorPolicy::AllExisting),
                                 true, "status", "Inputs packed bit by bit", "")};
        serve(std::make_unique<ModbusMap>("panel", entries, nullptr, ByteOrder::ABCD));
    }

    bool stored(std::uint64_t channel, bool value) const
    {
        return store().getChannelCValue(channel) == zu::CValue(value);
    }

    std::uint64_t relay = 0;
    std::uint64_t otherRelay = 0;
    std::vector<std::uint64_t> inputs;
    std::uint64_t voltage = 0;
    std::uint64_t current = 0;
};

TEST_F(CdsDiscretesAndCompositesEndToEndTest, CoilsAndDiscreteInputsServeTheStoredBooleans)
{
    const Bits expected{0, 1, 1, 0, 1};
    EXPECT_EQ(served->readCoils(g_relay, 5), expected);
    EXPECT_EQ(served->readDiscreteInputs(g_relay, 5), expected);
}

TEST_F(CdsDiscretesAndCompositesEndToEndTest, SingleCoilWritesReachTheStoreInvertedWhereAsked)
{
    ASSERT_EQ(modbus_write_bit(served->client(), g_relay, 1), 1);
    EXPECT_TRUE(waitUntil([&] { return stored(relay, true); }));

    store().setChannelCValue(otherRelay, zu::CValue(true));
    ASSERT_TRUE(waitUntil([&] { return served->readCoils(g_invertedRelay, 1) == Bits{0}; }));
    ASSERT_EQ(modbus_write_bit(served->client(), g_invertedRelay, 1), 1);
    EXPECT_TRUE(waitUntil([&] { return stored(otherRelay, false); }));
    ASSERT_EQ(modbus_write_bit(served->client(), g_invertedRelay, 0), 1);
    EXPECT_TRUE(waitUntil([&] { return stored(otherRelay, true); }));
    EXPECT_TRUE(waitUntil([&] { return served->readCoils(g_relay, 2) == Bits({1, 0}); }));
}

TEST_F(CdsDiscretesAndCompositesEndToEndTest, MultipleCoilWriteReachesEachDataPointOfTheComposite)
{
    const Bits written{0, 1, 0};
    ASSERT_EQ(modbus_write_bits(served->client(), g_inputs, 3, written.data()), 3);
    EXPECT_TRUE(waitUntil([&] { return stored(inputs[0], false) && stored(inputs[1], true) && stored(inputs[2], false); }));
    EXPECT_TRUE(waitUntil([&] { return served->readDiscreteInputs(g_inputs, 3) == written; }));
}

TEST_F(CdsDiscretesAndCompositesEndToEndTest, DriverChangesReachCoilAndInputReads)
{
    store().setChannelCValue(otherRelay, zu::CValue(true));
    store().setChannelCValue(inputs[1], zu::CValue(true));
    EXPECT_TRUE(waitUntil([&] { return served->readCoils(g_relay, 5) == Bits({0, 0, 1, 1, 1}); }));
    EXPECT_EQ(served->readDiscreteInputs(g_relay, 5), Bits({0, 0, 1, 1, 1}));
}

TEST_F(CdsDiscretesAndCompositesEndToEndTest, RegisterCompositeFollowsEachOfItsDataPoints)
{
    EXPECT_EQ(served->readHolding(g_apparentPower, 2), Words({2875, 0b101}));
    store().setChannelCValue(current, zu::CValue(10.0f));
    EXPECT_TRUE(waitUntil([&] { return served->readHolding(g_apparentPower, 1) == Words{2300}; }));
    store().setChannelCValue(inputs[0], zu::CValue(false));
    EXPECT_TRUE(waitUntil([&] { return served->readHolding(g_statusWord, 1) == Words{0b100}; }));
}

TEST_F(CdsDiscretesAndCompositesEndToEndTest, WrittenStatusWordReachesTheStoreBitByBit)
{
    const Words written{0b010};
    ASSERT_EQ(modbus_write_registers(served->client(), g_statusWord, 1, written.data()), 1);
    EXPECT_TRUE(waitUntil([&] { return stored(inputs[0], false) && stored(inputs[1], true) && stored(inputs[2], false); }));
    // The same data points, seen as discretes.
    EXPECT_TRUE(waitUntil([&] { return served->readCoils(g_inputs, 3) == Bits({0, 1, 0}); }));
}

TEST_F(CdsDiscretesAndCompositesEndToEndTest, WriteToTheReadOnlyCompositeIsRefused)
{
    const Words written{1};
    EXPECT_EQ(modbus_write_registers(served->client(), g_apparentPower, 1, written.data()), -1);
    flush();
    EXPECT_EQ(store().getChannelCValue(voltage), zu::CValue(230.0f));
}

} // namespace
} // namespace orv::modbus::cds::test
