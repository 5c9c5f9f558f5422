#include "FakeRegistersAccessor.h"
#include "LogCapture.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/Registers.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace orv::modbus::test {
namespace {

using ::testing::ThrowsMessage;

using orv::test::FakeDiscretesAccessor;
using orv::test::FakeRegistersAccessor;
using orv::test::LogCapture;

using ::testing::ElementsAre;

struct MappingDeleter {
    void operator()(modbus_mapping_t* mapping) const
    {
        modbus_mapping_free(mapping);
    }
};
using Mapping = std::unique_ptr<modbus_mapping_t, MappingDeleter>;

Mapping makeMapping(int size = 32)
{
    return Mapping(modbus_mapping_new(size, size, size, size));
}

template <class Entry>
std::pair<std::unique_ptr<Entry>, std::shared_ptr<FakeRegistersAccessor>>
registerEntry(uint16_t address, uint16_t size, bool writable = true, std::vector<uint16_t> initial = {})
{
    auto accessor = std::make_shared<FakeRegistersAccessor>(size, std::move(initial));
    auto entry = std::make_unique<Entry>(address, accessor, writable, "name", "description", "V");
    return {std::move(entry), accessor};
}

std::pair<std::unique_ptr<Discretes>, std::shared_ptr<FakeDiscretesAccessor>>
discreteEntry(uint16_t address, uint16_t size, bool writable = true, std::vector<uint8_t> initial = {})
{
    auto accessor = std::make_shared<FakeDiscretesAccessor>(size, std::move(initial));
    auto entry = std::make_unique<Discretes>(address, accessor, writable, "name", "description", "on", "off");
    return {std::move(entry), accessor};
}

TEST(ModbusMapEntryTest, KindCodes)
{
    EXPECT_EQ(discreteEntry(0, 1).first->getType(), 0);
    EXPECT_EQ(registerEntry<Registers>(0, 1).first->getType(), 1);
    EXPECT_EQ(registerEntry<HoldingRegisters>(0, 1).first->getType(), 2);
    EXPECT_EQ(registerEntry<LegacyRegisters>(0, 1).first->getType(), 3);
}

TEST(ModbusMapEntryTest, TakesItsSizeFromTheAccessorAndRegistersTheCallbackOnce)
{
    auto [entry, accessor] = registerEntry<HoldingRegisters>(7, 3, false);
    EXPECT_EQ(entry->getAddress(), 7);
    EXPECT_EQ(entry->getSize(), 3);
    EXPECT_FALSE(entry->isWritable());
    EXPECT_EQ(entry->getName(), "name");
    EXPECT_EQ(entry->getDescription(), "description");
    EXPECT_EQ(entry->getUnit(), "V");
    EXPECT_EQ(accessor->setCallbackCalls(), 1);
    EXPECT_FALSE(entry->isMapped());
}

// An accessor shared with someone else outlives its entry: what it reports
// after the entry is gone reaches neither the entry nor its tables.
TEST(ModbusMapEntryTest, ChangesReportedAfterTheEntryIsGoneReachNoTable)
{
    const auto mapping = makeMapping();
    auto [holding, holdingAccessor] = registerEntry<HoldingRegisters>(0, 1);
    auto [legacy, legacyAccessor] = registerEntry<LegacyRegisters>(4, 1);
    auto [discrete, discreteAccessor] = discreteEntry(2, 1);
    holding->setMapping(mapping.get());
    legacy->setMapping(mapping.get());
    discrete->setMapping(mapping.get());

    holding.reset();
    legacy.reset();
    discrete.reset();
    holdingAccessor->fire({5});
    legacyAccessor->fire({6});
    discreteAccessor->fire({1});

    EXPECT_EQ(mapping->tab_registers[0], 0);
    EXPECT_EQ(mapping->tab_registers[4], 0);
    EXPECT_EQ(mapping->tab_input_registers[4], 0);
    EXPECT_EQ(mapping->tab_bits[2], 0);
    EXPECT_EQ(mapping->tab_input_bits[2], 0);
    EXPECT_EQ(holdingAccessor->setCallbackCalls(), 2);
    EXPECT_EQ(discreteAccessor->setCallbackCalls(), 2);
}

TEST(ModbusMapEntryTest, ForwardsTextsAndAvailabilityToTheAccessor)
{
    auto [entry, accessor] = registerEntry<Registers>(0, 1);
    EXPECT_EQ(entry->getRepresentation(), "fake");
    EXPECT_EQ(entry->getStrValue(), "fake value");
    EXPECT_TRUE(entry->isAvailable());
    accessor->setAvailable(false);
    EXPECT_FALSE(entry->isAvailable());

    auto [discrete, bits] = discreteEntry(0, 1);
    bits->setAvailable(false);
    EXPECT_FALSE(discrete->isAvailable());
    EXPECT_EQ(discrete->getRepresentation(), "fake");
}

TEST(ModbusMapEntryTest, RegisterKindsPassTheByteOrderOn)
{
    auto [entry, accessor] = registerEntry<LegacyRegisters>(0, 2);
    entry->setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor->byteOrder(), ByteOrder::CDAB);
}

TEST(ModbusMapEntryTest, ShortCallbackValueIsPaddedWithZeros)
{
    auto mapping = makeMapping();
    mapping->tab_registers[11] = 0x7777;
    auto [entry, accessor] = registerEntry<HoldingRegisters>(10, 2);
    entry->setMapping(mapping.get());
    accessor->fire({0x1234});
    EXPECT_EQ(mapping->tab_registers[10], 0x1234);
    EXPECT_EQ(mapping->tab_registers[11], 0);
    EXPECT_THAT(entry->getValue(), ElementsAre(0x1234, 0));
}

TEST(ModbusMapEntryTest, ExtraCallbackWordsAreIgnored)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = registerEntry<HoldingRegisters>(10, 2);
    entry->setMapping(mapping.get());
    accessor->fire({1, 2, 3});
    EXPECT_EQ(mapping->tab_registers[12], 0);
    EXPECT_THAT(entry->getValue(), ElementsAre(1, 2));
}

TEST(ModbusMapEntryTest, SetMappingCopiesTheAccessorsValueIntoTheTables)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = registerEntry<HoldingRegisters>(4, 2, true, {0xaaaa, 0xbbbb});
    entry->setMapping(mapping.get());
    EXPECT_TRUE(entry->isMapped());
    EXPECT_EQ(mapping->tab_registers[4], 0xaaaa);
    EXPECT_EQ(mapping->tab_registers[5], 0xbbbb);
    EXPECT_EQ(mapping->tab_input_registers[4], 0);
}

TEST(ModbusMapEntryTest, InputRegistersLiveInTheInputTableOnly)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = registerEntry<Registers>(3, 1);
    entry->setMapping(mapping.get());
    accessor->fire({42});
    EXPECT_EQ(mapping->tab_input_registers[3], 42);
    EXPECT_EQ(mapping->tab_registers[3], 0);
    EXPECT_THAT(entry->getValue(), ElementsAre(42));
}

TEST(ModbusMapEntryTest, LegacyRegistersMirrorUpdatesAndClientWrites)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = registerEntry<LegacyRegisters>(2, 2);
    entry->setMapping(mapping.get());
    accessor->fire({5, 6});
    EXPECT_EQ(mapping->tab_input_registers[2], 5);
    EXPECT_EQ(mapping->tab_input_registers[3], 6);
    EXPECT_EQ(mapping->tab_registers[2], 5);
    EXPECT_EQ(mapping->tab_registers[3], 6);

    // A client writes the holding table only.
    mapping->tab_registers[2] = 100;
    mapping->tab_registers[3] = 200;
    EXPECT_THAT(entry->getValue(), ElementsAre(100, 200));
    entry->updateDataInAccessor();
    ASSERT_EQ(accessor->written().size(), 1U);
    EXPECT_THAT(accessor->written()[0], ElementsAre(100, 200));
    EXPECT_EQ(mapping->tab_input_registers[2], 100);
    EXPECT_EQ(mapping->tab_input_registers[3], 200);
}

TEST(ModbusMapEntryTest, HoldingRegistersPassClientWritesWithoutTouchingTheInputTable)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = registerEntry<HoldingRegisters>(2, 1);
    entry->setMapping(mapping.get());
    mapping->tab_registers[2] = 9;
    entry->updateDataInAccessor();
    ASSERT_EQ(accessor->written().size(), 1U);
    EXPECT_THAT(accessor->written()[0], ElementsAre(9));
    EXPECT_EQ(mapping->tab_input_registers[2], 0);
}

TEST(ModbusMapEntryTest, DiscretesWriteBothBitTablesAndReadTheCoils)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = discreteEntry(5, 2, true, {1, 0});
    entry->setMapping(mapping.get());
    EXPECT_EQ(mapping->tab_bits[5], 1);
    EXPECT_EQ(mapping->tab_input_bits[5], 1);
    accessor->fire({0, 1});
    EXPECT_EQ(mapping->tab_bits[5], 0);
    EXPECT_EQ(mapping->tab_bits[6], 1);
    EXPECT_EQ(mapping->tab_input_bits[5], 0);
    EXPECT_EQ(mapping->tab_input_bits[6], 1);

    // A client writes coils; that is what goes back to the accessor.
    mapping->tab_bits[5] = 1;
    EXPECT_THAT(entry->getValue(), ElementsAre(1, 1));
    entry->updateDataInAccessor();
    ASSERT_EQ(accessor->written().size(), 1U);
    EXPECT_THAT(accessor->written()[0], ElementsAre(1, 1));
    EXPECT_EQ(mapping->tab_input_bits[5], 0);
}

TEST(ModbusMapEntryTest, ShortDiscreteValueIsPaddedWithZeros)
{
    auto mapping = makeMapping();
    mapping->tab_bits[1] = 1;
    auto [entry, accessor] = discreteEntry(0, 2);
    entry->setMapping(mapping.get());
    accessor->fire({1});
    EXPECT_THAT(entry->getValue(), ElementsAre(1, 0));
    EXPECT_EQ(mapping->tab_input_bits[1], 0);
}

TEST(ModbusMapEntryTest, ReadOnlyEntriesNeverCallSetData)
{
    auto mapping = makeMapping();
    auto [holding, registers] = registerEntry<HoldingRegisters>(0, 1, false);
    auto [legacy, legacyRegisters] = registerEntry<LegacyRegisters>(1, 1, false);
    auto [discrete, bits] = discreteEntry(0, 1, false);
    holding->setMapping(mapping.get());
    legacy->setMapping(mapping.get());
    discrete->setMapping(mapping.get());
    mapping->tab_registers[0] = 1;
    mapping->tab_registers[1] = 1;
    mapping->tab_bits[0] = 1;
    holding->updateDataInAccessor();
    legacy->updateDataInAccessor();
    discrete->updateDataInAccessor();
    EXPECT_TRUE(registers->written().empty());
    EXPECT_TRUE(legacyRegisters->written().empty());
    EXPECT_TRUE(bits->written().empty());
    EXPECT_EQ(mapping->tab_input_registers[1], 0);
}

TEST(ModbusMapEntryTest, UnmappedEntriesDropCallbacksAndPushNothing)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = registerEntry<LegacyRegisters>(1, 1);
    accessor->fire({77});
    entry->updateDataInAccessor();
    EXPECT_TRUE(accessor->written().empty());

    entry->setMapping(mapping.get());
    // The value the accessor holds now is what the tables start with.
    EXPECT_EQ(mapping->tab_registers[1], 77);
    accessor->fire({78});
    EXPECT_EQ(mapping->tab_registers[1], 78);

    entry->setMapping(nullptr);
    EXPECT_FALSE(entry->isMapped());
    accessor->fire({79});
    EXPECT_EQ(mapping->tab_registers[1], 78);
    EXPECT_EQ(mapping->tab_input_registers[1], 78);
    entry->updateDataInAccessor();
    EXPECT_TRUE(accessor->written().empty());
}

TEST(ModbusMapEntryTest, UnmappedDiscretesDropCallbacks)
{
    auto mapping = makeMapping();
    auto [entry, accessor] = discreteEntry(1, 1);
    entry->setMapping(mapping.get());
    entry->setMapping(nullptr);
    accessor->fire({1});
    EXPECT_EQ(mapping->tab_bits[1], 0);
    EXPECT_EQ(mapping->tab_input_bits[1], 0);
}

TEST(ModbusMapEntryTest, ZeroSizeAccessorIsRejectedWithTheAddressInHex)
{
    auto accessor = std::make_shared<FakeRegistersAccessor>(0);
    EXPECT_THAT([&] { HoldingRegisters entry(0, accessor, true, "n", "d", "u"); },
                ThrowsMessage<std::runtime_error>(
                    "Bad definition of modbus map entry at address 0x0000 (0): Size must be strictly positive."));
    EXPECT_EQ(accessor->setCallbackCalls(), 0);

    EXPECT_THAT([&] { Discretes entry(26, std::make_shared<FakeDiscretesAccessor>(0), true, "n", "d", "1", "0"); },
                ThrowsMessage<std::runtime_error>(
                    "Bad definition of modbus map entry at address 0x001a (26): Size must be strictly positive."));
}

TEST(ModbusMapEntryTest, NullAccessorFailsTheSizeCheckFirst)
{
    const auto expectSizeError = [](auto construct) {
        try {
            construct();
            FAIL() << "no exception";
        } catch (const std::invalid_argument&) {
            FAIL() << "the size check must come first";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Bad definition of modbus map entry at address 0x0003 (3): Size must be "
                                       "strictly positive.");
        }
    };
    expectSizeError([] { Registers(3, static_cast<RegistersDataAccessor*>(nullptr), true, "n", "d", "u"); });
    expectSizeError([] { LegacyRegisters(3, std::shared_ptr<RegistersDataAccessor>(), true, "n", "d", "u"); });
    expectSizeError([] { Discretes(3, static_cast<DiscretesDataAccessor*>(nullptr), true, "n", "d", "1", "0"); });
}

TEST(ModbusMapEntryTest, RawAccessorIsOwnedByTheEntry)
{
    bool destroyed = false;
    {
        HoldingRegisters entry(0, new FakeRegistersAccessor(1, {}, &destroyed), true, "n", "d", "u");
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);

    destroyed = false;
    EXPECT_THROW(Registers(0, new FakeRegistersAccessor(0, {}, &destroyed), true, "n", "d", "u"),
                 std::runtime_error);
    EXPECT_TRUE(destroyed);
}

TEST(ModbusMapEntryTest, EntryPastTheTableEndStaysInsideTheTable)
{
    // Two words at 65535 wrap to 0 in the map's index; the table index
    // 65536 does not exist and must not be written.
    auto mapping = makeMapping(4);
    auto [entry, accessor] = registerEntry<LegacyRegisters>(65535, 2, true, {1, 2});
    entry->setMapping(mapping.get());
    accessor->fire({3, 4});
    EXPECT_THAT(entry->getValue(), ElementsAre(0, 0));
    EXPECT_EQ(mapping->tab_registers[0], 0);
}

// A custom kind that keeps the base behaviour of the optional operations.
class MinimalEntry : public ModbusMapEntry {
public:
    MinimalEntry()
        : ModbusMapEntry(1, false, 1, "minimal", "")
    {
    }
    int getType() const override
    {
        return g_typeHoldingRegisters;
    }
    std::string getRepresentation() const override
    {
        return "";
    }
    std::string getStrValue() const override
    {
        return "";
    }
    void updateDataInAccessor() override
    {
    }
};

TEST(ModbusMapEntryTest, BaseSetMappingLogsAndTracksTheMappedState)
{
    auto mapping = makeMapping();
    MinimalEntry entry;
    EXPECT_TRUE(entry.isAvailable());
    LogCapture log(LogCapture::g_functionAndMessage);
    entry.setMapping(mapping.get());
    EXPECT_TRUE(entry.isMapped());
    EXPECT_TRUE(log.contains("setMapping|m_pMapping ptr not null"));
    entry.setMapping(nullptr);
    EXPECT_FALSE(entry.isMapped());
    EXPECT_EQ(log.lines().size(), 1U);
}

} // namespace
} // namespace orv::modbus::test
