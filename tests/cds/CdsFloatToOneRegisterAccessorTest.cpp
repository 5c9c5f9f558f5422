#include "FakeCdsDataAccessor.h"
#include "PublishedWords.h"

#include <orv/modbus/cds/CdsFloatToOneRegisterAccessor.h>

#include <gtest/gtest.h>

#include <limits>

namespace orv::modbus::cds::test {
namespace {

using Words = std::vector<uint16_t>;

Words served(float value, float factor, float offset, ValueKind kind)
{
    FakeCdsDataAccessor data{zu::CValue(value)};
    return CdsFloatToOneRegisterAccessor(&data, factor, offset, kind).getData();
}

zu::CValue written(const Words& words, float factor, float offset, ValueKind kind)
{
    FakeCdsDataAccessor data(zu::CValue(0.0f));
    CdsFloatToOneRegisterAccessor(&data, factor, offset, kind).setData(words);
    return data.written().empty() ? zu::CValue() : data.written().back();
}

TEST(CdsFloatToOneRegisterAccessorTest, UnsignedKindRoundsTheAbsoluteValueAndClamps)
{
    EXPECT_EQ(served(12.34f, 10.0f, 0.0f, ValueKind::Unsigned), Words{123});
    EXPECT_EQ(served(7000.0f, 10.0f, 0.0f, ValueKind::Unsigned), Words{65535});
    EXPECT_EQ(served(-2.26f, 10.0f, 0.0f, ValueKind::Unsigned), Words{23});
    EXPECT_EQ(served(-0.54f, 10.0f, 0.0f, ValueKind::Unsigned), Words{5});
}

TEST(CdsFloatToOneRegisterAccessorTest, SignedKindRoundsClampsAndNeverServesANegativeRegister)
{
    EXPECT_EQ(served(12.36f, 10.0f, 0.0f, ValueKind::Signed), Words{124});
    EXPECT_EQ(served(5000.0f, 10.0f, 0.0f, ValueKind::Signed), Words{32767});
    EXPECT_EQ(served(-3.0f, 10.0f, 0.0f, ValueKind::Signed), Words{0});
    EXPECT_EQ(served(-5000.0f, 10.0f, 0.0f, ValueKind::Signed), Words{0});
}

TEST(CdsFloatToOneRegisterAccessorTest, NotANumberServesZero)
{
    EXPECT_EQ(served(std::numeric_limits<float>::quiet_NaN(), 1.0f, 0.0f, ValueKind::Unsigned), Words{0});
    EXPECT_EQ(served(std::numeric_limits<float>::quiet_NaN(), 1.0f, 0.0f, ValueKind::Signed), Words{0});
}

TEST(CdsFloatToOneRegisterAccessorTest, SignedWriteReadsTheRegisterAsSigned)
{
    EXPECT_EQ(written({0xFFFF}, 10.0f, 0.0f, ValueKind::Signed), zu::CValue(-1.0f * (1.0f / 10.0f)));
    EXPECT_EQ(written({0xFFFF}, 10.0f, 0.0f, ValueKind::Unsigned), zu::CValue(65535.0f * (1.0f / 10.0f)));
}

TEST(CdsFloatToOneRegisterAccessorTest, OffsetComesBeforeFactor)
{
    FakeCdsDataAccessor data(zu::CValue(3.0f));
    CdsFloatToOneRegisterAccessor accessor(&data, 2.0f, 1.0f, ValueKind::Unsigned);
    EXPECT_EQ(accessor.multiplyAndOffsetData(3.0f), 8.0f);
    EXPECT_EQ(accessor.getData(), Words{8});
    accessor.setData({8});
    ASSERT_EQ(data.written().size(), 1u);
    EXPECT_EQ(data.written()[0], zu::CValue(3.0f));
}

TEST(CdsFloatToOneRegisterAccessorTest, EmptyWriteStoresZeroAndExtraWordsAreIgnored)
{
    EXPECT_EQ(written({}, 2.0f, 1.0f, ValueKind::Unsigned), zu::CValue(0.0f));
    EXPECT_EQ(written({8, 100}, 2.0f, 1.0f, ValueKind::Unsigned), zu::CValue(3.0f));
}

TEST(CdsFloatToOneRegisterAccessorTest, ChangesAreConvertedLikeReads)
{
    FakeCdsDataAccessor data(zu::CValue(0.0f));
    CdsFloatToOneRegisterAccessor accessor(&data, 10.0f, 0.0f, ValueKind::Unsigned);
    PublishedWords published;
    accessor.setCallback(published.callback());
    data.change(zu::CValue(12.34f));
    EXPECT_EQ(published.last(), Words{123});
}

TEST(CdsFloatToOneRegisterAccessorTest, TextAndRepresentationFollowTheKind)
{
    FakeCdsDataAccessor data(zu::CValue(-2.26f));
    CdsFloatToOneRegisterAccessor unsignedAccessor(&data, 10.0f, 0.0f, ValueKind::Unsigned);
    CdsFloatToOneRegisterAccessor signedAccessor(&data, 10.0f, 0.0f, ValueKind::Signed);
    EXPECT_EQ(unsignedAccessor.getStrValue(), "23");
    EXPECT_EQ(signedAccessor.getStrValue(), "0");
    EXPECT_EQ(unsignedAccessor.getDataRepresentation(), "UInt16");
    EXPECT_EQ(signedAccessor.getDataRepresentation(), "Int16");
    EXPECT_EQ(signedAccessor.getSize(), 1);
}

} // namespace
} // namespace orv::modbus::cds::test
