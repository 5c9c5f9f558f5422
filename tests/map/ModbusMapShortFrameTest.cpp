#include "EntryList.h"
#include "ModbusSocketPair.h"
#include "ModbusWire.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include <poll.h>
#include <sys/socket.h>


namespace orv::modbus::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// processRequest called directly with frames cut short: each buffer is
// exactly as long as the length passed, so reading past it is caught by
// the address sanitizer, and nothing may be answered from bytes that are
// not there.
class ModbusMapShortFrameTest : public ::testing::Test {
protected:
    ModbusMapShortFrameTest()
    {
        EntryList entries;
        m_pAccessor = entries.add<HoldingRegisters>(0, 2, true, {0x0102, 0x0304});
        m_pMap = std::make_unique<ModbusMap>("short", entries.release(), nullptr, ByteOrder::ABCD);
    }

    // The MBAP header of unit 1 followed by `pdu`, in a buffer of exactly
    // that size.
    static std::unique_ptr<uint8_t[]> frame(const std::vector<uint8_t>& pdu, unsigned& length)
    {
        std::vector<uint8_t> bytes{0x00, 0x07, 0x00, 0x00, 0x00, static_cast<uint8_t>(pdu.size() + 1), 0x01};
        bytes.insert(bytes.end(), pdu.begin(), pdu.end());
        length = static_cast<unsigned>(bytes.size());
        auto buffer = std::make_unique<uint8_t[]>(bytes.size());
        std::copy(bytes.begin(), bytes.end(), buffer.get());
        return buffer;
    }

    bool process(const std::vector<uint8_t>& pdu)
    {
        unsigned length = 0;
        auto buffer = frame(pdu, length);
        return m_pMap->processRequest(m_wire.server(), buffer.get(), length, false, false, false);
    }

    bool replySent() const
    {
        pollfd descriptor{m_wire.clientSocket(), POLLIN, 0};
        return poll(&descriptor, 1, 50) == 1;
    }

    orv::test::ModbusSocketPair m_wire;
    std::shared_ptr<FakeRegistersAccessor> m_pAccessor;
    std::unique_ptr<ModbusMap> m_pMap;
};

TEST_F(ModbusMapShortFrameTest, HeaderWithoutFunctionCodeIsDropped)
{
    EXPECT_FALSE(process({}));
    EXPECT_FALSE(replySent());
}

TEST_F(ModbusMapShortFrameTest, ReadWithoutAddressAndCountIsDropped)
{
    EXPECT_FALSE(process({0x03}));
    EXPECT_FALSE(replySent());
    EXPECT_FALSE(process({0x03, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(replySent());
}

TEST_F(ModbusMapShortFrameTest, SingleWriteWithoutValueIsDropped)
{
    EXPECT_FALSE(process({0x06, 0x00, 0x00, 0x12}));
    EXPECT_FALSE(replySent());
    EXPECT_THAT(m_pAccessor->written(), IsEmpty());
}

TEST_F(ModbusMapShortFrameTest, MultipleWriteWithFewerDataBytesThanAnnouncedIsDropped)
{
    // Two registers announced with four data bytes; two arrive.
    EXPECT_FALSE(process({0x10, 0x00, 0x00, 0x00, 0x02, 0x04, 0xAA, 0xBB}));
    EXPECT_FALSE(replySent());
    // The byte count itself is missing.
    EXPECT_FALSE(process({0x10, 0x00, 0x00, 0x00, 0x02}));
    EXPECT_FALSE(replySent());
    EXPECT_THAT(m_pAccessor->written(), IsEmpty());
}

TEST_F(ModbusMapShortFrameTest, CompleteFramesOfExactSizeAreAnswered)
{
    EXPECT_TRUE(process({0x03, 0x00, 0x00, 0x00, 0x02}));
    EXPECT_TRUE(replySent());
    std::vector<uint8_t> reply(64);
    reply.resize(static_cast<std::size_t>(recv(m_wire.clientSocket(), reply.data(), reply.size(), 0)));
    EXPECT_THAT(std::vector<uint8_t>(reply.begin() + 7, reply.end()), ElementsAre(0x03, 0x04, 0x01, 0x02, 0x03, 0x04));

    EXPECT_TRUE(process({0x10, 0x00, 0x00, 0x00, 0x02, 0x04, 0xAA, 0xBB, 0xCC, 0xDD}));
    EXPECT_THAT(m_pAccessor->written(), ElementsAre(ElementsAre(0xAABB, 0xCCDD)));
}

TEST_F(ModbusMapShortFrameTest, UnknownFunctionCodeNeedsNoMoreThanItsCode)
{
    EXPECT_FALSE(process({0x2B}));
    ASSERT_TRUE(replySent());
    std::vector<uint8_t> reply(64);
    reply.resize(static_cast<std::size_t>(recv(m_wire.clientSocket(), reply.data(), reply.size(), 0)));
    EXPECT_THAT(std::vector<uint8_t>(reply.begin() + 7, reply.end()), ElementsAre(0xAB, 0x01));
}

} // namespace
} // namespace orv::modbus::test
