#include "FakeRegistersAccessor.h"

#include <gtest/gtest.h>

namespace orv::modbus::test {
namespace {

using orv::test::FakeRegistersAccessor;

TEST(RegistersDataAccessorTest, DefaultSetByteOrderRecordsTheOrder)
{
    FakeRegistersAccessor accessor(2);
    EXPECT_EQ(accessor.byteOrder(), ByteOrder::ABCD);
    RegistersDataAccessor& base = accessor;
    base.setByteOrder(ByteOrder::CDAB);
    EXPECT_EQ(accessor.byteOrder(), ByteOrder::CDAB);
    base.setByteOrder(ByteOrder::ABCD);
    EXPECT_EQ(accessor.byteOrder(), ByteOrder::ABCD);
}

} // namespace
} // namespace orv::modbus::test
