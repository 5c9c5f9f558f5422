// What every register accessor over one data point shares, checked through
// one of them.
#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsFloatAccessor.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

TEST(CdsRegistersAccessorBaseTest, SharedDataStoreAccessorIsKeptAlive)
{
    auto data = std::make_shared<FakeCdsDataAccessor>(zu::CValue(1.0f));
    std::weak_ptr<FakeCdsDataAccessor> watcher = data;
    {
        CdsFloatAccessor accessor(std::shared_ptr<CdsDataAccessor>(std::move(data)), 1.0f, 1);
        EXPECT_FALSE(watcher.expired());
        EXPECT_EQ(accessor.getStrValue(), "1.0");
    }
    EXPECT_TRUE(watcher.expired());
}

TEST(CdsRegistersAccessorBaseTest, RawDataStoreAccessorIsBorrowedAndOutlivesTheAccessor)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    PublishedWords published;
    {
        CdsFloatAccessor accessor(&data, 1.0f, 1);
        accessor.setCallback(published.callback());
        data.change(zu::CValue(2.0f));
        EXPECT_EQ(published.count(), 1u);
    }
    // The data point lives on; its changes no longer reach the destroyed
    // accessor or its entry.
    data.change(zu::CValue(3.0f));
    EXPECT_EQ(published.count(), 1u);
}

TEST(CdsRegistersAccessorBaseTest, ConstructorRegistersForChangesOnce)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    EXPECT_EQ(data.setUpdateCallbackCalls(), 1);
    EXPECT_TRUE(data.hasCallback());
}

TEST(CdsRegistersAccessorBaseTest, ChangesBeforeTheEntryListensAreDropped)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    data.change(zu::CValue(2.0f));
    PublishedWords published;
    accessor.setCallback(published.callback());
    EXPECT_EQ(published.count(), 0u);
    data.change(zu::CValue(150.0f));
    EXPECT_EQ(published.last(), (PublishedWords::Words{0x4316, 0x0000}));
}

TEST(CdsRegistersAccessorBaseTest, AvailabilityFollowsTheDataPoint)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    EXPECT_TRUE(accessor.isDataAvailable());
    data.setExisting(false);
    EXPECT_FALSE(accessor.isDataAvailable());
}

TEST(CdsRegistersAccessorBaseTest, NullDataStoreAccessorIsRefused)
{
    EXPECT_THROW(CdsFloatAccessor(static_cast<CdsDataAccessor*>(nullptr), 1.0f, 1), std::invalid_argument);
    EXPECT_THROW(CdsFloatAccessor(std::shared_ptr<CdsDataAccessor>(), 1.0f, 1), std::invalid_argument);
}

TEST(CdsRegistersAccessorBaseTest, NewCallbackReplacesTheOldOne)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    PublishedWords first;
    PublishedWords second;
    accessor.setCallback(first.callback());
    accessor.setCallback(second.callback());
    data.change(zu::CValue(2.0f));
    EXPECT_EQ(first.count(), 0u);
    EXPECT_EQ(second.count(), 1u);
}

} // namespace
} // namespace orv::modbus::cds::test
