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

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint8_t g_illegalFunction = MODBUS_EXCEPTION_ILLEGAL_FUNCTION;

// A map with every kind of refusal in reach:
//   holding  10-11 writable, 12 read-only, 13 and 14 writable, 15 unavailable
//   input    30
//   coils    0-1 writable, 5 read-only, 6 unavailable
class ModbusMapRequestTest : public ::testing::Test {
protected:
    ModbusMapRequestTest()
    {
        EntryList entries;
        m_pHolding = entries.add<HoldingRegisters>(10, 2, true, {0x1111, 0x2222});
        m_pReadOnly = entries.add<HoldingRegisters>(12, 1, false, {0x3333});
        m_pThirteen = entries.add<HoldingRegisters>(13, 1, true, {0x1313});
        m_pFourteen = entries.add<HoldingRegisters>(14, 1, true, {0x1414});
        m_pUnavailable = entries.add<HoldingRegisters>(15, 1, true, {0x1515});
        m_pInput = entries.add<Registers>(30, 1, false, {0x3030});
        m_pCoils = entries.addDiscretes(0, 2, true, {1, 0});
        m_pReadOnlyCoil = entries.addDiscretes(5, 1, false, {1});
        m_pUnavailableCoil = entries.addDiscretes(6, 1, true, {1});
        m_pUnavailable->setAvailable(false);
        m_pUnavailableCoil->setAvailable(false);
        m_pMap = std::make_unique<ModbusMap>("requests", entries.release(), m_pAvailability, ByteOrder::ABCD);
    }

    std::vector<uint8_t> exchange(const std::vector<uint8_t>& pdu, RequestFlags flags = {})
    {
        return m_wire.exchange(*m_pMap, pdu, flags, &m_processed);
    }

    bool nothingWritten() const
    {
        for (const auto& accessor : {m_pHolding, m_pReadOnly, m_pThirteen, m_pFourteen, m_pUnavailable}) {
            if (!accessor->written().empty()) {
                return false;
            }
        }
        for (const auto& accessor : {m_pCoils, m_pReadOnlyCoil, m_pUnavailableCoil}) {
            if (!accessor->written().empty()) {
                return false;
            }
        }
        return true;
    }

    FakeMapAvailableAccessor* m_pAvailability = new FakeMapAvailableAccessor(true, "not yet");
    std::shared_ptr<FakeRegistersAccessor> m_pHolding;
    std::shared_ptr<FakeRegistersAccessor> m_pReadOnly;
    std::shared_ptr<FakeRegistersAccessor> m_pThirteen;
    std::shared_ptr<FakeRegistersAccessor> m_pFourteen;
    std::shared_ptr<FakeRegistersAccessor> m_pUnavailable;
    std::shared_ptr<FakeRegistersAccessor> m_pInput;
    std::shared_ptr<FakeDiscretesAccessor> m_pCoils;
    std::shared_ptr<FakeDiscretesAccessor> m_pReadOnlyCoil;
    std::shared_ptr<FakeDiscretesAccessor> m_pUnavailableCoil;
    std::unique_ptr<ModbusMap> m_pMap;
    ModbusWire m_wire;
    bool m_processed = false;
};

TEST_F(ModbusMapRequestTest, ReadsHoldingRegistersFromTheTables)
{
    EXPECT_EQ(exchange(readPdu(3, 10, 2)), registersReplyPdu(3, {0x1111, 0x2222}));
    EXPECT_TRUE(m_processed);
}

TEST_F(ModbusMapRequestTest, ReadsPartOfAMultiRegisterEntry)
{
    EXPECT_EQ(exchange(readPdu(3, 11, 1)), registersReplyPdu(3, {0x2222}));
    EXPECT_TRUE(m_processed);
}

TEST_F(ModbusMapRequestTest, ReadAcrossEntriesTouchesEachOfThem)
{
    EXPECT_EQ(exchange(readPdu(3, 10, 5)), registersReplyPdu(3, {0x1111, 0x2222, 0x3333, 0x1313, 0x1414}));
}

TEST_F(ModbusMapRequestTest, ReadsServeTheLatestNotification)
{
    m_pHolding->fire({0xbeef, 0xcafe});
    EXPECT_EQ(exchange(readPdu(3, 10, 2)), registersReplyPdu(3, {0xbeef, 0xcafe}));
}

TEST_F(ModbusMapRequestTest, OneAddressWithoutEntryRefusesTheWholeRead)
{
    EXPECT_EQ(exchange(readPdu(3, 13, 4)), exceptionPdu(3, g_illegalAddress));
    EXPECT_FALSE(m_processed);
    EXPECT_EQ(exchange(readPdu(3, 0, 1)), exceptionPdu(3, g_illegalAddress));
}

TEST_F(ModbusMapRequestTest, ReadOfAnUnavailableEntryIsRefusedWithCode2)
{
    EXPECT_EQ(exchange(readPdu(3, 14, 2)), exceptionPdu(3, g_illegalAddress));
    EXPECT_FALSE(m_processed);
    EXPECT_EQ(exchange(readPdu(1, 6, 1)), exceptionPdu(1, g_illegalAddress));
    EXPECT_EQ(exchange(readPdu(2, 5, 2)), exceptionPdu(2, g_illegalAddress));
}

TEST_F(ModbusMapRequestTest, InputRegistersAreReadWithFunctionCode4Only)
{
    EXPECT_EQ(exchange(readPdu(4, 30, 1)), registersReplyPdu(4, {0x3030}));
    EXPECT_TRUE(m_processed);
    EXPECT_EQ(exchange(readPdu(4, 10, 1)), exceptionPdu(4, g_illegalAddress));
    EXPECT_EQ(exchange(readPdu(3, 30, 1)), exceptionPdu(3, g_illegalAddress));
}

TEST_F(ModbusMapRequestTest, ReadsCoilsAndDiscreteInputs)
{
    EXPECT_EQ(exchange(readPdu(1, 0, 2)), (std::vector<uint8_t>{1, 1, 0b01}));
    EXPECT_TRUE(m_processed);
    EXPECT_EQ(exchange(readPdu(2, 0, 2)), (std::vector<uint8_t>{2, 1, 0b01}));
    EXPECT_EQ(exchange(readPdu(1, 0, 3)), exceptionPdu(1, g_illegalAddress));
}

TEST_F(ModbusMapRequestTest, SingleRegisterWritePassesTheWholeEntryAfterTheReply)
{
    bool replySentBeforeSetData = false;
    m_pHolding->onSetData([this, &replySentBeforeSetData](const auto&) { replySentBeforeSetData = m_wire.replyPending(); });
    EXPECT_EQ(exchange(writeSinglePdu(6, 11, 0x0102)), writeSinglePdu(6, 11, 0x0102));
    EXPECT_TRUE(m_processed);
    EXPECT_TRUE(replySentBeforeSetData);
    EXPECT_THAT(m_pHolding->written(), ElementsAre(ElementsAre(0x1111, 0x0102)));
    EXPECT_EQ(exchange(readPdu(3, 10, 2)), registersReplyPdu(3, {0x1111, 0x0102}));
}

TEST_F(ModbusMapRequestTest, MultipleRegisterWriteAcrossEntriesReachesEachAccessorOnce)
{
    EXPECT_EQ(exchange(writeRegistersPdu(11, {0x00b1})), readPdu(16, 11, 1));
    EXPECT_EQ(exchange(writeRegistersPdu(13, {7, 8})), readPdu(16, 13, 2));
    EXPECT_TRUE(m_processed);
    EXPECT_THAT(m_pHolding->written(), ElementsAre(ElementsAre(0x1111, 0x00b1)));
    EXPECT_THAT(m_pThirteen->written(), ElementsAre(ElementsAre(7)));
    EXPECT_THAT(m_pFourteen->written(), ElementsAre(ElementsAre(8)));
}

TEST_F(ModbusMapRequestTest, WriteToAReadOnlyEntryIsRefusedWithCode1)
{
    EXPECT_EQ(exchange(writeSinglePdu(6, 12, 1)), exceptionPdu(6, g_illegalFunction));
    EXPECT_FALSE(m_processed);
    // One refused address refuses the writable ones of the same request.
    EXPECT_EQ(exchange(writeRegistersPdu(11, {1, 2, 3})), exceptionPdu(16, g_illegalFunction));
    EXPECT_EQ(exchange(writeSinglePdu(5, 5, 0)), exceptionPdu(5, g_illegalFunction));
    EXPECT_TRUE(nothingWritten());
    EXPECT_EQ(exchange(readPdu(3, 10, 3)), registersReplyPdu(3, {0x1111, 0x2222, 0x3333}));
}

TEST_F(ModbusMapRequestTest, WriteToAnUnavailableEntryIsRefusedWithCode1)
{
    EXPECT_EQ(exchange(writeSinglePdu(6, 15, 1)), exceptionPdu(6, g_illegalFunction));
    EXPECT_EQ(exchange(writeCoilsPdu(6, {true})), exceptionPdu(15, g_illegalFunction));
    EXPECT_FALSE(m_processed);
    EXPECT_TRUE(nothingWritten());
}

TEST_F(ModbusMapRequestTest, WriteToAnUnknownAddressIsRefusedWithCode2)
{
    EXPECT_EQ(exchange(writeRegistersPdu(16, {1, 2})), exceptionPdu(16, g_illegalAddress));
    EXPECT_EQ(exchange(writeSinglePdu(5, 2, 0xff00)), exceptionPdu(5, g_illegalAddress));
    // Writable entries in the same request do not save it.
    EXPECT_EQ(exchange(writeCoilsPdu(0, {true, true, true})), exceptionPdu(15, g_illegalAddress));
    EXPECT_FALSE(m_processed);
    EXPECT_TRUE(nothingWritten());
}

TEST_F(ModbusMapRequestTest, InputRegistersAreNotSearchedForWrites)
{
    EXPECT_EQ(exchange(writeSinglePdu(6, 30, 1)), exceptionPdu(6, g_illegalAddress));
    EXPECT_FALSE(m_processed);
}

TEST_F(ModbusMapRequestTest, ReadOnlyMapRefusesWritesToWritableEntries)
{
    const RequestFlags readOnly{.readOnly = true};
    EXPECT_EQ(exchange(writeSinglePdu(6, 10, 1), readOnly), exceptionPdu(6, g_illegalFunction));
    EXPECT_FALSE(m_processed);
    EXPECT_EQ(exchange(writeRegistersPdu(13, {1, 2}), readOnly), exceptionPdu(16, g_illegalFunction));
    EXPECT_EQ(exchange(writeSinglePdu(5, 0, 0xff00), readOnly), exceptionPdu(5, g_illegalFunction));
    EXPECT_EQ(exchange(writeCoilsPdu(0, {true, true}), readOnly), exceptionPdu(15, g_illegalFunction));
    EXPECT_TRUE(nothingWritten());
    // Reads are still served.
    EXPECT_EQ(exchange(readPdu(3, 10, 1), readOnly), registersReplyPdu(3, {0x1111}));
}

TEST_F(ModbusMapRequestTest, CoilWritesReachTheDiscreteAccessor)
{
    EXPECT_EQ(exchange(writeSinglePdu(5, 1, 0xff00)), writeSinglePdu(5, 1, 0xff00));
    EXPECT_TRUE(m_processed);
    EXPECT_THAT(m_pCoils->written(), ElementsAre(ElementsAre(1, 1)));
    EXPECT_EQ(exchange(writeCoilsPdu(0, {false, false})), readPdu(15, 0, 2));
    EXPECT_THAT(m_pCoils->written(), ElementsAre(ElementsAre(1, 1), ElementsAre(0, 0)));
    EXPECT_EQ(exchange(readPdu(1, 0, 2)), (std::vector<uint8_t>{1, 1, 0}));
}

TEST_F(ModbusMapRequestTest, UnsupportedFunctionCodesAreRefusedWithCode1)
{
    // Read/write multiple registers, then other codes outside the served set.
    std::vector<uint8_t> readWrite = readPdu(23, 10, 1);
    for (uint8_t byte : {0, 10, 0, 1, 2, 0, 1}) {
        readWrite.push_back(byte);
    }
    EXPECT_EQ(exchange(readWrite), exceptionPdu(23, g_illegalFunction));
    EXPECT_FALSE(m_processed);
    EXPECT_EQ(exchange(std::vector<uint8_t>{7}), exceptionPdu(7, g_illegalFunction));
    EXPECT_EQ(exchange(std::vector<uint8_t>{17}), exceptionPdu(17, g_illegalFunction));
    EXPECT_TRUE(nothingWritten());
}

TEST_F(ModbusMapRequestTest, UnavailableMapSendsNothing)
{
    m_pAvailability->setAvailable(false);
    LogCapture log(LogCapture::g_functionAndMessage);
    EXPECT_THAT(exchange(readPdu(3, 10, 1)), IsEmpty());
    EXPECT_FALSE(m_processed);
    EXPECT_THAT(exchange(writeSinglePdu(6, 10, 1)), IsEmpty());
    EXPECT_FALSE(m_processed);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_TRUE(nothingWritten());
}

TEST_F(ModbusMapRequestTest, ZeroCountReadIsLeftToLibmodbus)
{
    // No entry is involved, so libmodbus itself answers: illegal data value.
    EXPECT_EQ(exchange(readPdu(3, 0, 0)), exceptionPdu(3, MODBUS_EXCEPTION_ILLEGAL_DATA_VALUE));
    EXPECT_TRUE(m_processed);
}

TEST_F(ModbusMapRequestTest, LibmodbusRefusesAddressesBeyondTheTables)
{
    EXPECT_EQ(exchange(readPdu(4, 31, 1), {.skipReadChecks = true}), exceptionPdu(4, g_illegalAddress));
    EXPECT_TRUE(m_processed);
}

TEST_F(ModbusMapRequestTest, SkippedReadChecksServeTheTablesAsTheyAre)
{
    const RequestFlags skip{.skipReadChecks = true};
    EXPECT_EQ(exchange(readPdu(3, 0, 2), skip), registersReplyPdu(3, {0, 0}));
    EXPECT_TRUE(m_processed);
    EXPECT_EQ(exchange(readPdu(3, 15, 1), skip), registersReplyPdu(3, {0x1515}));
    EXPECT_EQ(exchange(readPdu(1, 6, 1), skip), (std::vector<uint8_t>{1, 1, 1}));
    // Writes are checked all the same.
    EXPECT_EQ(exchange(writeSinglePdu(6, 0, 1), skip), exceptionPdu(6, g_illegalAddress));
}

TEST_F(ModbusMapRequestTest, AddressShiftMakesRequestAddressesOneBased)
{
    const RequestFlags shift{.addressShift = true};
    EXPECT_EQ(exchange(readPdu(3, 11, 2), shift), registersReplyPdu(3, {0x1111, 0x2222}));
    EXPECT_TRUE(m_processed);
    EXPECT_EQ(exchange(readPdu(1, 1, 2), shift), (std::vector<uint8_t>{1, 1, 0b01}));
    EXPECT_EQ(exchange(writeSinglePdu(6, 11, 0x0909), shift), writeSinglePdu(6, 11, 0x0909));
    EXPECT_THAT(m_pHolding->written(), ElementsAre(ElementsAre(0x0909, 0x2222)));
    // The next unshifted request sees 0-based addresses again.
    EXPECT_EQ(exchange(readPdu(3, 10, 1)), registersReplyPdu(3, {0x0909}));
}

TEST_F(ModbusMapRequestTest, ShiftedWriteToAddressZeroWrapsTo65535)
{
    EXPECT_EQ(exchange(writeSinglePdu(6, 0, 1), {.addressShift = true}), exceptionPdu(6, g_illegalAddress));
    EXPECT_EQ(exchange(writeSinglePdu(5, 0, 0xff00), {.addressShift = true}), exceptionPdu(5, g_illegalAddress));
    EXPECT_FALSE(m_processed);
    EXPECT_TRUE(nothingWritten());
}

TEST_F(ModbusMapRequestTest, LogsEachRequestUnderProcessRequest)
{
    LogCapture log(LogCapture::g_functionAndMessage);
    exchange(readPdu(3, 10, 1));
    exchange(readPdu(3, 10, 1), {.skipReadChecks = true});
    exchange(readPdu(4, 30, 1), {.skipReadChecks = true});
    exchange(readPdu(1, 0, 1));
    exchange(writeSinglePdu(5, 0, 0));
    exchange(writeSinglePdu(6, 12, 0));
    exchange(std::vector<uint8_t>{43});
    EXPECT_THAT(log.lines(), ElementsAre("processRequest|Read holding registers",
                                         "processRequest|Processing a request... Done.",
                                         "processRequest|Processing a request... Done.",
                                         "processRequest|Read input registers",
                                         "processRequest|Processing a request... Done.",
                                         "processRequest|Read discret",
                                         "processRequest|Processing a request... Done.",
                                         "processRequest|Write discret input",
                                         "processRequest|Processing a request... Done.",
                                         "processRequest|Write register", "processRequest| Error!",
                                         "processRequest| Error!"));
}

TEST(ModbusMapLegacyRequestTest, LegacyEntriesAnswerBothRegisterReads)
{
    EntryList entries;
    auto legacy = entries.add<LegacyRegisters>(20, 2, true, {0xaaaa, 0xbbbb});
    auto holding = entries.add<HoldingRegisters>(5, 1, true, {0x0505});
    auto shadowed = entries.add<LegacyRegisters>(5, 1, true, {0x5050});
    ModbusMap map("legacy", entries.release(), nullptr, ByteOrder::ABCD);
    ModbusWire wire;
    EXPECT_EQ(wire.exchange(map, readPdu(3, 20, 2)), registersReplyPdu(3, {0xaaaa, 0xbbbb}));
    EXPECT_EQ(wire.exchange(map, readPdu(4, 20, 2)), registersReplyPdu(4, {0xaaaa, 0xbbbb}));

    // A write goes through the holding table; the input table follows.
    EXPECT_EQ(wire.exchange(map, writeRegistersPdu(20, {1, 2})), readPdu(16, 20, 2));
    EXPECT_THAT(legacy->written(), ElementsAre(ElementsAre(1, 2)));
    EXPECT_EQ(wire.exchange(map, readPdu(4, 20, 2)), registersReplyPdu(4, {1, 2}));

    // Holding entries are searched before legacy ones.
    EXPECT_EQ(wire.exchange(map, writeSinglePdu(6, 5, 9)), writeSinglePdu(6, 5, 9));
    EXPECT_THAT(holding->written(), ElementsAre(ElementsAre(9)));
}

TEST(ModbusMapLegacyRequestTest, HoldingEntryInsideALegacySpanAnswersItsOwnAddress)
{
    EntryList entries;
    auto legacy = entries.add<LegacyRegisters>(0, 4, true, {0xa0a0, 0xa1a1, 0xa2a2, 0xa3a3});
    auto holding = entries.add<HoldingRegisters>(1, 1, true, {0x0101});
    ModbusMap map("legacy", entries.release(), nullptr, ByteOrder::ABCD);
    ModbusWire wire;
    EXPECT_EQ(wire.exchange(map, readPdu(4, 0, 4)), registersReplyPdu(4, {0xa0a0, 0xa1a1, 0xa2a2, 0xa3a3}));

    // Met before and after the holding entry, the legacy entry still gets
    // the write once.
    EXPECT_EQ(wire.exchange(map, writeRegistersPdu(0, {1, 2, 3, 4})), readPdu(16, 0, 4));
    EXPECT_THAT(holding->written(), ElementsAre(ElementsAre(2)));
    EXPECT_THAT(legacy->written(), ElementsAre(ElementsAre(1, 2, 3, 4)));
    EXPECT_EQ(wire.exchange(map, readPdu(3, 0, 4)), registersReplyPdu(3, {1, 2, 3, 4}));

    // An unavailable holding entry refuses the read even inside a legacy span.
    holding->setAvailable(false);
    EXPECT_EQ(wire.exchange(map, readPdu(3, 0, 4)), exceptionPdu(3, MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS));
}

} // namespace
} // namespace orv::modbus::test
