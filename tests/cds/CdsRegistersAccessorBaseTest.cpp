// What every register accessor over one data point shares, checked through
// one of them, or through each kind where every kind does it on its own.
#include "FakeCdsDataAccessor.h"
#include "NamedParameter.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/CdsFloatToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsFloatToRegistersAccessor.h>
#include <orv/modbus/cds/CdsInt32Accessor.h>
#include <orv/modbus/cds/CdsInt32ToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsStringAccessor.h>
#include <orv/modbus/cds/CdsStringToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsUint32Accessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

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

// One kind of register accessor over a data point that is missing from the
// data store.
struct MissingDataPoint {
    const char* name;
    zu::CValue value;
    std::function<std::unique_ptr<RegistersDataAccessor>(CdsDataAccessor*)> make;
    // What a client writes.
    std::vector<uint16_t> words;
};

using orv::test::PrintTo;

class CdsRegistersAccessorKindTest : public ::testing::TestWithParam<MissingDataPoint> {};

TEST_P(CdsRegistersAccessorKindTest, UnavailableDataPointServesNothingAndTakesNothing)
{
    FakeCdsDataAccessor data(GetParam().value, false);
    const auto accessor = GetParam().make(&data);
    EXPECT_TRUE(accessor->getData().empty());
    EXPECT_EQ(accessor->getStrValue(), "");
    accessor->setData(GetParam().words);
    EXPECT_TRUE(data.written().empty());
}

// Makes the accessor with `arguments` after the data-store accessor.
template <class Accessor, class... Arguments>
std::function<std::unique_ptr<RegistersDataAccessor>(CdsDataAccessor*)> after(Arguments... arguments)
{
    return [=](CdsDataAccessor* data) { return std::make_unique<Accessor>(data, arguments...); };
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, CdsRegistersAccessorKindTest,
    ::testing::Values(
        MissingDataPoint{"BooleanToOneRegister", zu::CValue(true), after<CdsBooleanToOneRegisterAccessor>(), {1}},
        MissingDataPoint{"Float", zu::CValue(1.5f), after<CdsFloatAccessor>(1.0f, 2), {0x4316, 0x0000}},
        MissingDataPoint{"FloatToOneRegister", zu::CValue(1.0f),
                         after<CdsFloatToOneRegisterAccessor>(1.0f, 0.0f, ValueKind::Signed), {1}},
        MissingDataPoint{"FloatToRegisters", zu::CValue(1.0f), after<CdsFloatToRegistersAccessor>(), {0, 3}},
        MissingDataPoint{"Int32", zu::CValue(std::int32_t{5}), after<CdsInt32Accessor>(), {0, 1}},
        MissingDataPoint{"Int32ToOneRegister", zu::CValue(std::int32_t{1}),
                         after<CdsInt32ToOneRegisterAccessor>(1.0f), {1}},
        MissingDataPoint{"String", zu::CValue("ABC"),
                         [](CdsDataAccessor* data) { return std::make_unique<CdsStringAccessor>(2, data); }, {0x4142}},
        MissingDataPoint{"StringToOneRegister", zu::CValue("5"), after<CdsStringToOneRegisterAccessor>(), {1}},
        MissingDataPoint{"Uint32", zu::CValue(std::uint32_t{5}), after<CdsUint32Accessor>(), {0, 1}},
        MissingDataPoint{"Uint32ToOneRegister", zu::CValue(std::uint32_t{1}),
                         after<CdsUint32ToOneRegisterAccessor>(1.0f), {1}}),
    orv::test::g_byName);

} // namespace
} // namespace orv::modbus::cds::test
