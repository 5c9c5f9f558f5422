// Data-store ids are 64 bits wide on every CPU, also where size_t and long
// have 32 (the gateway's ARM CPU). Two devices and two channels whose ids
// differ only above bit 31 must stay apart through the channel accessor's
// look-up, its subscription bookkeeping and its notifications: an id cut to
// 32 bits anywhere on the way would mix them up.
#include "CdsStoreTest.h"
#include "ValueLog.h"

#include <orv/modbus/cds/CdsChannelAccessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdint>

namespace orv::modbus::cds::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

constexpr std::uint64_t g_upperHalf = std::uint64_t{1} << 32;
constexpr std::uint64_t g_lowDevice = 7;
constexpr std::uint64_t g_highDevice = g_upperHalf + g_lowDevice;
constexpr std::uint64_t g_lowChannel = 9;
constexpr std::uint64_t g_highChannel = g_upperHalf + g_lowChannel;

class CdsSixtyFourBitIdsTest : public CdsStoreTest {
protected:
    void SetUp() override
    {
        CdsStoreTest::SetUp();
        store().loadSeed(fmt::format(R"({{"devices": [
            {{"id": {}, "name": "low", "channels": [{{"id": {}, "name": "Value", "kind": "uint32", "value": 1}}]}},
            {{"id": {}, "name": "high", "channels": [{{"id": {}, "name": "Value", "kind": "uint32", "value": 2}}]}}]}})",
                                     g_lowDevice, g_lowChannel, g_highDevice, g_highChannel),
                         "ids");
        flush();
    }
};

TEST_F(CdsSixtyFourBitIdsTest, SeededIdsAboveThirtyTwoBitsAreKeptWhole)
{
    EXPECT_EQ(store().getDeviceByName("high"), g_highDevice);
    EXPECT_EQ(store().getChannelId(g_highDevice, "Value"), g_highChannel);
    EXPECT_EQ(store().getChannelId(g_lowDevice, "Value"), g_lowChannel);
}

TEST_F(CdsSixtyFourBitIdsTest, AccessorOfTheHighDeviceReadsAndWatchesOnlyItsChannel)
{
    // Outlives the accessor, whose last write is still notified while the
    // test ends.
    ValueLog log;
    Accessor accessor(g_highDevice, "Value", DataType::ChannelValue);
    EXPECT_EQ(accessor.getCValue(), zu::CValue(std::uint32_t{2}));
    flush();
    EXPECT_TRUE(watches(Accessor::m_mapChannelAccessorChannelUpdateSubscriber, g_highChannel, &accessor));
    EXPECT_FALSE(isKnownUnder(accessor, g_lowChannel));
    EXPECT_FALSE(isKnownUnder(accessor, g_lowDevice));

    accessor.setUpdateCallback(log.callback());
    store().setChannelCValue(g_lowChannel, zu::CValue(std::uint32_t{10}));
    store().setChannelCValue(g_highChannel, zu::CValue(std::uint32_t{20}));
    flush();
    EXPECT_TRUE(log.lastIs(zu::CValue(std::uint32_t{20})));
    EXPECT_THAT(log.values(), Not(Contains(zu::CValue(std::uint32_t{10}))));

    accessor.setCValue(zu::CValue(std::uint32_t{21}));
    EXPECT_EQ(store().getChannelCValue(g_highChannel), zu::CValue(std::uint32_t{21}));
    EXPECT_EQ(store().getChannelCValue(g_lowChannel), zu::CValue(std::uint32_t{10}));
}

} // namespace
} // namespace orv::modbus::cds::test
