#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsFloatAccessor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <stdexcept>

namespace orv::modbus::cds::test {
namespace {

using ::testing::ThrowsMessage;

using Words = std::vector<uint16_t>;

Words wordsOf(float value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    return {static_cast<uint16_t>(bits >> 16), static_cast<uint16_t>(bits & 0xFFFF)};
}

TEST(CdsFloatAccessorTest, ServesTheExactWordsOfTheFloatInBothOrders)
{
    struct Case {
        float value;
        ByteOrder order;
        Words words;
    };
    for (const auto& [value, order, words] : {Case{150.0f, ByteOrder::ABCD, {0x4316, 0x0000}},
                                              Case{150.0f, ByteOrder::CDAB, {0x0000, 0x4316}},
                                              Case{-2.5f, ByteOrder::ABCD, {0xC020, 0x0000}},
                                              Case{-2.5f, ByteOrder::CDAB, {0x0000, 0xC020}}}) {
        FakeCdsDataAccessor data{zu::CValue(value)};
        CdsFloatAccessor accessor(&data, 1.0f, 1);
        accessor.setByteOrder(order);
        PublishedWords published;
        accessor.setCallback(published.callback());

        EXPECT_EQ(accessor.getData(), words) << value << " " << to_string(order);
        data.change(zu::CValue(value));
        EXPECT_EQ(published.last(), words) << value << " " << to_string(order);

        accessor.setData(words);
        ASSERT_EQ(data.written().size(), 1u);
        EXPECT_EQ(data.written().back(), zu::CValue(value)) << value << " " << to_string(order);
    }
}

TEST(CdsFloatAccessorTest, OneRegisterIsTheFirstWordInEitherOrder)
{
    FakeCdsDataAccessor data(zu::CValue(0.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    accessor.setData({0x4316});
    accessor.setByteOrder(ByteOrder::CDAB);
    accessor.setData({0x4316});
    ASSERT_EQ(data.written().size(), 2u);
    EXPECT_EQ(data.written()[0], zu::CValue(150.0f));
    EXPECT_EQ(data.written()[1], zu::CValue(std::bit_cast<float>(0x00004316u)));
}

TEST(CdsFloatAccessorTest, EmptyWriteStoresZero)
{
    FakeCdsDataAccessor data(zu::CValue(3.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    accessor.setData({});
    ASSERT_EQ(data.written().size(), 1u);
    EXPECT_EQ(data.written()[0], zu::CValue(0.0f));
}

TEST(CdsFloatAccessorTest, ScaleAppliesTwiceOnReadOnceOnChangesAndText)
{
    FakeCdsDataAccessor data(zu::CValue(1.5f));
    CdsFloatAccessor accessor(&data, 10.0f, 1);
    PublishedWords published;
    accessor.setCallback(published.callback());

    EXPECT_EQ(accessor.getData(), wordsOf(150.0f));
    data.change(zu::CValue(1.5f));
    EXPECT_EQ(published.last(), wordsOf(15.0f));
    EXPECT_EQ(accessor.getStrValue(), "15.0");

    accessor.setData(wordsOf(20.0f));
    ASSERT_EQ(data.written().size(), 1u);
    EXPECT_EQ(data.written()[0], zu::CValue(2.0f));
}

TEST(CdsFloatAccessorTest, TextHasTheConfiguredDecimals)
{
    FakeCdsDataAccessor data(zu::CValue(3.14159f));
    EXPECT_EQ(CdsFloatAccessor(&data, 1.0f, 2).getStrValue(), "3.14");
    EXPECT_EQ(CdsFloatAccessor(&data, 1.0f, 0).getStrValue(), "3");
}

TEST(CdsFloatAccessorTest, RepresentationNamesTheByteOrder)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    EXPECT_EQ(accessor.getDataRepresentation(), "Float (ABCD)");
    accessor.setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor.getDataRepresentation(), "Float (CDAB)");
    EXPECT_EQ(accessor.getSize(), 2);
}

TEST(CdsFloatAccessorTest, UnknownByteOrderThrowsTheShortenedMessages)
{
    FakeCdsDataAccessor data(zu::CValue(1.0f));
    CdsFloatAccessor accessor(&data, 1.0f, 1);
    accessor.setByteOrder(static_cast<ByteOrder>(2));
    EXPECT_THAT([&] { accessor.setData({1, 2}); },
                ThrowsMessage<std::logic_error>("tData is not implemented for ByteOrder"));
    EXPECT_TRUE(data.written().empty());
    EXPECT_THAT([&] { accessor.buildArrayFromFloat(1.0f); },
                ThrowsMessage<std::logic_error>("ildArrayFromFloat is not implemented for ByteOrder"));
}

} // namespace
} // namespace orv::modbus::cds::test
