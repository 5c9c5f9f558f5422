#include <orv/modbus/cds/CdsInBandAccessor.h>

#include <gtest/gtest.h>

#include <future>

namespace orv::modbus::cds {
namespace {

TEST(CdsInBandAccessorTest, OneClientNamedModbusForTheWholeProcess)
{
    auto& client = CdsInBandAccessor::getInstance();
    EXPECT_EQ(client.getClientName(), "modbus");
    EXPECT_EQ(&CdsInBandAccessor::getInstance(), &client);
    auto fromOtherThread = std::async(std::launch::async, [] { return &CdsInBandAccessor::getInstance(); });
    EXPECT_EQ(fromOtherThread.get(), &client);
}

} // namespace
} // namespace orv::modbus::cds
