// A write that libmodbus answers with an exception changes nothing in the
// data store. A legacy entry alone sizes the register tables, so holding
// entries may lie wholly or partly outside them: writes to those addresses
// pass the map's own checks, and libmodbus refuses them.

#include "FakeRegistersAccessor.h"
#include "ModbusWire.h"
#include "ServedMap.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/RegistersDataAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsUint32Accessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <cdsapi/DataStore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>

namespace orv::modbus::test {
namespace {

using orv::test::FakeDiscretesAccessor;
using orv::test::FakeRegistersAccessor;
using orv::test::ServedMap;
using ::testing::IsEmpty;

constexpr uint8_t g_illegalValue = MODBUS_EXCEPTION_ILLEGAL_DATA_VALUE;

// Passes everything on to a data-store accessor and counts its setData calls.
class CountingRegistersAccessor : public RegistersDataAccessor {
public:
    CountingRegistersAccessor(std::unique_ptr<RegistersDataAccessor> inner, std::atomic<int>& setDataCalls)
        : m_pInner(std::move(inner))
        , m_setDataCalls(setDataCalls)
    {
    }

    void setData(const std::vector<uint16_t>& data) override
    {
        ++m_setDataCalls;
        m_pInner->setData(data);
    }
    std::vector<uint16_t> getData() const override { return m_pInner->getData(); }
    std::string getDataRepresentation() const override { return m_pInner->getDataRepresentation(); }
    bool isDataAvailable() const override { return m_pInner->isDataAvailable(); }
    void setCallback(std::function<void(const std::vector<uint16_t>&)> callback) override
    {
        m_pInner->setCallback(std::move(callback));
    }
    std::string getStrValue() const override { return m_pInner->getStrValue(); }
    uint16_t getSize() const override { return m_pInner->getSize(); }
    void setByteOrder(ByteOrder order) override { m_pInner->setByteOrder(order); }

private:
    std::unique_ptr<RegistersDataAccessor> m_pInner;
    std::atomic<int>& m_setDataCalls;
};

// legacy   0-1 (sizes both register tables to 2 words)
// holding  5   one-register view of channel "single" (outside the tables)
// holding  1-2 two-register view of channel "double" (half inside)
// coil     0
class ModbusMapRefusedWriteTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        store().clear();
        const auto device = store().createDevice("meter");
        m_single = store().addChannel(device, "single", zu::CValue(g_singleValue));
        m_double = store().addChannel(device, "double", zu::CValue(g_doubleValue));
        auto single = std::make_unique<cds::CdsUint32ToOneRegisterAccessor>(channel(device, "single"), 1.0f);
        auto pair = std::make_unique<cds::CdsUint32Accessor>(channel(device, "double"));
        std::vector<ModbusMapEntry*> entries{
            new LegacyRegisters(0, m_pLegacy, true, "legacy", "", ""),
            new HoldingRegisters(5, new CountingRegistersAccessor(std::move(single), m_singleWrites), true,
                                 "single", "", ""),
            new HoldingRegisters(1, new CountingRegistersAccessor(std::move(pair), m_doubleWrites), true, "double",
                                 "", ""),
            new Discretes(0, m_pCoil, true, "coil", "", "off", "on")};
        m_pMap = std::make_unique<ModbusMap>("refusals", entries, nullptr, ByteOrder::ABCD);
    }

    void TearDown() override
    {
        m_pMap.reset();
        store().clear();
    }

    static cdsapi::DataStore& store()
    {
        return cdsapi::DataStore::instance();
    }

    static std::shared_ptr<cds::CdsChannelAccessor> channel(std::uint64_t device, const std::string& name)
    {
        return std::make_shared<cds::CdsChannelAccessor>(device, name, cds::DataType::ChannelValue);
    }

    // Nothing reached an accessor, and the store holds what it held.
    void expectNothingWritten() const
    {
        EXPECT_EQ(m_singleWrites, 0);
        EXPECT_EQ(m_doubleWrites, 0);
        EXPECT_THAT(m_pLegacy->written(), IsEmpty());
        EXPECT_THAT(m_pCoil->written(), IsEmpty());
        EXPECT_EQ(store().getChannelCValue(m_single), zu::CValue(g_singleValue));
        EXPECT_EQ(store().getChannelCValue(m_double), zu::CValue(g_doubleValue));
    }

    static constexpr std::uint32_t g_singleValue = 55;
    static constexpr std::uint32_t g_doubleValue = 0x00120034;

    std::uint64_t m_single = 0;
    std::uint64_t m_double = 0;
    std::atomic<int> m_singleWrites{0};
    std::atomic<int> m_doubleWrites{0};
    std::shared_ptr<FakeRegistersAccessor> m_pLegacy = std::make_shared<FakeRegistersAccessor>(
        2, std::vector<uint16_t>{0x0a0a, 0x0b0b});
    std::shared_ptr<FakeDiscretesAccessor> m_pCoil = std::make_shared<FakeDiscretesAccessor>(
        1, std::vector<uint8_t>{0});
    std::unique_ptr<ModbusMap> m_pMap;
    ModbusWire m_wire;
};

TEST_F(ModbusMapRefusedWriteTest, SingleWriteToAnEntryBeyondTheTablesChangesNothing)
{
    EXPECT_EQ(m_wire.exchange(*m_pMap, writeSinglePdu(6, 5, 7)), exceptionPdu(6, g_illegalAddress));
    expectNothingWritten();
}

TEST_F(ModbusMapRefusedWriteTest, MultipleWriteToAnEntryHalfBeyondTheTablesChangesNothing)
{
    EXPECT_EQ(m_wire.exchange(*m_pMap, writeRegistersPdu(1, {0x0001, 0x0002})), exceptionPdu(16, g_illegalAddress));
    expectNothingWritten();
}

TEST_F(ModbusMapRefusedWriteTest, MultipleWriteRunningPastTheTablesChangesNothing)
{
    EXPECT_EQ(m_wire.exchange(*m_pMap, writeRegistersPdu(0, {0x0101, 0x0202, 0x0303})),
              exceptionPdu(16, g_illegalAddress));
    expectNothingWritten();
}

TEST_F(ModbusMapRefusedWriteTest, CoilValueOtherThanOnOrOffChangesNothing)
{
    EXPECT_EQ(m_wire.exchange(*m_pMap, writeSinglePdu(5, 0, 0x1234)), exceptionPdu(5, g_illegalValue));
    expectNothingWritten();
}

TEST_F(ModbusMapRefusedWriteTest, EntryPartlyOutsideTheTablesGetsNothingFromAnAcceptedWrite)
{
    // Address 1 is inside the tables: libmodbus writes it and answers
    // normally. But the entry at 1-2 would pass on a word no client wrote.
    EXPECT_EQ(m_wire.exchange(*m_pMap, writeSinglePdu(6, 1, 0x0909)), writeSinglePdu(6, 1, 0x0909));
    expectNothingWritten();
}

TEST_F(ModbusMapRefusedWriteTest, LibmodbusClientIsRefusedAndTheStoreKeepsItsValue)
{
    ServedMap served(*m_pMap);
    errno = 0;
    EXPECT_EQ(modbus_write_register(served.client(), 5, 7), -1);
    EXPECT_EQ(errno, EMBXILADD);
    const uint16_t words[] = {1, 2};
    EXPECT_EQ(modbus_write_registers(served.client(), 1, 2, words), -1);
    EXPECT_EQ(errno, EMBXILADD);
    expectNothingWritten();
}

} // namespace
} // namespace orv::modbus::test
