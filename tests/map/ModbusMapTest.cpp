#include "EntryList.h"
#include "FakeMapAvailableAccessor.h"
#include "LogCapture.h"
#include "ModbusWire.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;

using ::testing::ElementsAre;

std::unique_ptr<ModbusMap> makeMap(EntryList& entries, MapAvailableAccessor* available = nullptr,
                                   ByteOrder order = ByteOrder::ABCD)
{
    return std::make_unique<ModbusMap>("test-map", entries.release(), available, order);
}

// Whether libmodbus serves `address` for `functionCode` from the tables,
// with every entry check skipped: tells the size of a table.
bool inTable(ModbusMap& map, uint8_t functionCode, uint16_t address)
{
    ModbusWire wire;
    const auto reply = wire.exchange(map, readPdu(functionCode, address, 1), {.skipReadChecks = true});
    if (reply == exceptionPdu(functionCode, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS)) {
        return false;
    }
    EXPECT_EQ(reply.at(0), functionCode);
    return true;
}

// The number of addresses a table serves, probed at its expected end.
void expectTableSize(ModbusMap& map, uint8_t functionCode, uint16_t size)
{
    if (size > 0) {
        EXPECT_TRUE(inTable(map, functionCode, size - 1)) << "function " << int(functionCode) << " size " << size;
    }
    EXPECT_FALSE(inTable(map, functionCode, size)) << "function " << int(functionCode) << " size " << size;
}

std::string overlapMessage(EntryList& entries)
{
    try {
        makeMap(entries);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

TEST(ModbusMapTest, OverlappingHoldingRegistersAreRejectedWithBothNames)
{
    EntryList entries;
    entries.add<HoldingRegisters>(10, 2, true, {}, "a");
    entries.add<HoldingRegisters>(11, 1, true, {}, "b");
    EXPECT_EQ(overlapMessage(entries), "Failed to allocate the mapping: entry at holding register address 11 from "
                                       "element starting at 11 already exist.\nCurrent entry: b\nExisting entry: a\n");
}

TEST(ModbusMapTest, OverlapMessageNamesTheKindOfEachIndex)
{
    EntryList discretes;
    discretes.addDiscretes(3, 4, true, {}, "first");
    discretes.addDiscretes(1, 3, true, {}, "second");
    EXPECT_EQ(overlapMessage(discretes), "Failed to allocate the mapping: entry at discrete address 3 from element "
                                         "starting at 1 already exist.\nCurrent entry: second\nExisting entry: first\n");

    EntryList inputs;
    inputs.add<Registers>(0, 1, true, {}, "x");
    inputs.add<Registers>(0, 1, true, {}, "y");
    EXPECT_EQ(overlapMessage(inputs), "Failed to allocate the mapping: entry at input register address 0 from element "
                                      "starting at 0 already exist.\nCurrent entry: y\nExisting entry: x\n");

    EntryList legacy;
    legacy.add<LegacyRegisters>(65535, 2, true, {}, "wrapping");
    legacy.add<LegacyRegisters>(0, 1, true, {}, "zero");
    EXPECT_EQ(overlapMessage(legacy), "Failed to allocate the mapping: entry at register address 0 from element "
                                      "starting at 0 already exist.\nCurrent entry: zero\nExisting entry: wrapping\n");
}

TEST(ModbusMapTest, FailedConstructionReleasesEveryEntry)
{
    bool firstDestroyed = false;
    bool clashingDestroyed = false;
    bool laterDestroyed = false;
    EntryList entries;
    entries.add<HoldingRegisters>(0, 1, true, {}, "first", &firstDestroyed);
    entries.add<HoldingRegisters>(0, 1, true, {}, "clashing", &clashingDestroyed);
    entries.add<HoldingRegisters>(5, 1, true, {}, "later", &laterDestroyed);
    auto released = entries.release();
    EXPECT_THROW(ModbusMap("m", released, nullptr, ByteOrder::ABCD), std::runtime_error);
    EXPECT_TRUE(firstDestroyed);
    EXPECT_TRUE(clashingDestroyed);
    EXPECT_TRUE(laterDestroyed);
}

TEST(ModbusMapTest, LegacyAndHoldingEntriesMayShareAnAddress)
{
    EntryList entries;
    entries.add<LegacyRegisters>(5, 1, true, {1});
    entries.add<HoldingRegisters>(5, 1, true, {2});
    entries.add<Registers>(5, 1, true, {3});
    entries.addDiscretes(5, 1);
    EXPECT_NO_THROW(makeMap(entries));
}

TEST(ModbusMapTest, RegisterTablesAreSizedByTheirHighestAddress)
{
    EntryList entries;
    entries.add<HoldingRegisters>(0, 1);
    entries.add<HoldingRegisters>(19, 2);
    entries.add<Registers>(7, 1);
    auto map = makeMap(entries);
    expectTableSize(*map, MODBUS_FC_READ_HOLDING_REGISTERS, 21);
    expectTableSize(*map, MODBUS_FC_READ_INPUT_REGISTERS, 8);
    expectTableSize(*map, MODBUS_FC_READ_COILS, 0);
    expectTableSize(*map, MODBUS_FC_READ_DISCRETE_INPUTS, 0);
}

TEST(ModbusMapTest, LegacyEntriesAloneSizeBothRegisterTables)
{
    EntryList entries;
    entries.add<HoldingRegisters>(19, 2);
    entries.add<Registers>(7, 1);
    entries.add<LegacyRegisters>(3, 1);
    auto map = makeMap(entries);
    expectTableSize(*map, MODBUS_FC_READ_HOLDING_REGISTERS, 4);
    expectTableSize(*map, MODBUS_FC_READ_INPUT_REGISTERS, 4);
}

TEST(ModbusMapTest, DiscretesSizeBothBitTables)
{
    EntryList entries;
    entries.addDiscretes(0, 1);
    entries.addDiscretes(9, 1);
    auto map = makeMap(entries);
    expectTableSize(*map, MODBUS_FC_READ_COILS, 10);
    expectTableSize(*map, MODBUS_FC_READ_DISCRETE_INPUTS, 10);
    expectTableSize(*map, MODBUS_FC_READ_HOLDING_REGISTERS, 0);
}

TEST(ModbusMapTest, MapWithoutEntriesHasEmptyTables)
{
    EntryList entries;
    auto map = makeMap(entries);
    for (uint8_t functionCode : {1, 2, 3, 4}) {
        expectTableSize(*map, functionCode, 0);
    }
}

TEST(ModbusMapTest, EntryAtTheLastAddressWrapsTheTableSizeToZero)
{
    EntryList entries;
    entries.add<HoldingRegisters>(65535, 1, true, {7});
    entries.addDiscretes(65535, 1, true, {1});
    auto map = makeMap(entries);
    expectTableSize(*map, MODBUS_FC_READ_HOLDING_REGISTERS, 0);
    expectTableSize(*map, MODBUS_FC_READ_COILS, 0);
}

TEST(ModbusMapTest, WithoutAvailabilityAccessorTheMapIsAlwaysAvailable)
{
    EntryList entries;
    auto map = makeMap(entries);
    EXPECT_TRUE(map->isMapAvailable());
    EXPECT_EQ(map->notAvailableUserMessage(), "");
    EXPECT_EQ(map->getMapId(), "test-map");
}

TEST(ModbusMapTest, AvailabilityComesFromItsAccessor)
{
    EntryList entries;
    auto* available = new FakeMapAvailableAccessor(false, "waiting for the service");
    auto map = makeMap(entries, available);
    EXPECT_FALSE(map->isMapAvailable());
    EXPECT_EQ(map->notAvailableUserMessage(), "waiting for the service");
    available->setAvailable(true);
    EXPECT_TRUE(map->isMapAvailable());
}

TEST(ModbusMapTest, ConstructionSetsTheByteOrderAndFillsTheTables)
{
    EntryList entries;
    auto legacy = entries.add<LegacyRegisters>(0, 2, true, {0x0102, 0x0304});
    auto holding = entries.add<HoldingRegisters>(0, 1, true, {0x0a0b});
    auto map = makeMap(entries, nullptr, ByteOrder::CDAB);
    EXPECT_EQ(legacy->byteOrder(), ByteOrder::CDAB);
    EXPECT_EQ(holding->byteOrder(), ByteOrder::CDAB);
    ModbusWire wire;
    EXPECT_EQ(wire.exchange(*map, readPdu(MODBUS_FC_READ_INPUT_REGISTERS, 0, 2)),
              registersReplyPdu(MODBUS_FC_READ_INPUT_REGISTERS, {0x0102, 0x0304}));
}

TEST(ModbusMapTest, LogsConstructionAndDestruction)
{
    LogCapture log(LogCapture::g_functionAndMessage);
    {
        EntryList entries;
        entries.add<HoldingRegisters>(0, 1);
        auto map = makeMap(entries);
    }
    EXPECT_THAT(log.lines(), ElementsAre("ModbusMap|Create a modbus mapping...", "ModbusMap|Initialize the values...",
                                         "ModbusMap|Initialize the values...Done.",
                                         "ModbusMap|Create a mobbus mapping...Done.",
                                         "~ModbusMap|Deleting the mapping...",
                                         "~ModbusMap|Deleting the mapping...Done."));
}

} // namespace
} // namespace orv::modbus::test
