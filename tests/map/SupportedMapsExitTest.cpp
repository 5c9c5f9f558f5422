#include <orv/modbus/SupportedMaps.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace orv::modbus::test {
namespace {

// The registry keeps its maps until the process exits. Their data-store
// accessors then leave their subscriptions, so the data-store client must
// still be there when the registry goes, although the first accessor was
// built after the registry.
TEST(SupportedMapsExitTest, MapsBoundToTheDataStoreAreReleasedCleanlyAtExit)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SupportedMaps::getMapping("data-store-map", ORV_TEST_DATA_STORE_MAP_PLUGIN);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace orv::modbus::test
