#include "ModbusWire.h"

#include <orv/modbus/SupportedMaps.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <functional>
#include <stdexcept>
#include <thread>

namespace orv::modbus::test {
namespace {

const std::string g_goodPlugin = ORV_TEST_GOOD_MAP_PLUGIN;
const std::string g_noFactoryPlugin = ORV_TEST_NO_FACTORY_PLUGIN;
const std::string g_throwingPlugin = ORV_TEST_THROWING_MAP_PLUGIN;
const std::string g_missingLibrary = "/nonexistent/liborv-no-such-map.so";

// How often the good plug-in's factory ran in this process so far.
int goodFactoryCalls()
{
    void* handle = dlopen(g_goodPlugin.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) {
        return 0;
    }
    const int calls = *static_cast<int*>(dlsym(handle, "createMapCalls"));
    dlclose(handle);
    return calls;
}

std::string errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.rfind(prefix, 0) == 0;
}

TEST(SupportedMapsTest, LoadsAMapOnceAndReturnsTheSameMapAfterwards)
{
    const int callsBefore = goodFactoryCalls();
    const auto first = SupportedMaps::getMapping("once", g_goodPlugin);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getMapId(), "plugin-map");
    // A second path for the same identifier is never opened: opening this
    // one would throw.
    const auto second = SupportedMaps::getMapping("once", g_missingLibrary);
    EXPECT_EQ(first, second);
    EXPECT_EQ(SupportedMaps::getInstance().getMap("once"), first);
    EXPECT_EQ(goodFactoryCalls(), callsBefore + 1);
}

TEST(SupportedMapsTest, PluginMapKeepsWorkingAfterTheHandleIsClosed)
{
    const auto map = SupportedMaps::getMapping("served", g_goodPlugin);
    ModbusWire wire;
    EXPECT_EQ(wire.exchange(*map, readPdu(MODBUS_FC_READ_HOLDING_REGISTERS, 0, 1)),
              registersReplyPdu(MODBUS_FC_READ_HOLDING_REGISTERS, {0x002a}));
    EXPECT_NE(map->getCsv(false).find("answer"), std::string::npos);
}

TEST(SupportedMapsTest, CreateMappingRegistersTheMap)
{
    SupportedMaps::createMapping("created", g_goodPlugin);
    EXPECT_EQ(SupportedMaps::getInstance().getMap("created")->getMapId(), "plugin-map");
}

TEST(SupportedMapsTest, UnknownIdentifierIsNotAvailable)
{
    EXPECT_EQ(errorOf([] { SupportedMaps::getInstance().getMap("x"); }), "Map x not available");
}

TEST(SupportedMapsTest, UnloadableLibraryNamesThePathAndTheLoaderError)
{
    const std::string error = errorOf([] { SupportedMaps::createMapping("unloadable", g_missingLibrary); });
    const std::string prefix = "Couldn't dlopen library " + g_missingLibrary + "\n";
    EXPECT_TRUE(startsWith(error, prefix)) << error;
    EXPECT_GT(error.size(), prefix.size()) << "the loader's error text is missing";
    EXPECT_EQ(errorOf([] { SupportedMaps::getInstance().getMap("unloadable"); }), "Map unloadable not available");
}

TEST(SupportedMapsTest, LibraryWithoutFactoryLeavesTheIdentifierFreeForARetry)
{
    const std::string error = errorOf([] { SupportedMaps::createMapping("retried", g_noFactoryPlugin); });
    const std::string prefix = "Couldn't get createMap symbol from library\n";
    EXPECT_TRUE(startsWith(error, prefix)) << error;
    EXPECT_NE(error.find("createMap", prefix.size()), std::string::npos) << error;
    EXPECT_EQ(errorOf([] { SupportedMaps::getInstance().getMap("retried"); }), "Map retried not available");

    EXPECT_EQ(SupportedMaps::getMapping("retried", g_goodPlugin)->getMapId(), "plugin-map");
}

TEST(SupportedMapsTest, FactoryExceptionPropagatesUnchanged)
{
    EXPECT_EQ(errorOf([] { SupportedMaps::getMapping("broken", g_throwingPlugin); }),
              "Failed to allocate the mapping: entry at holding register address 3 from element starting at 3 "
              "already exist.\nCurrent entry: second\nExisting entry: first\n");
    EXPECT_EQ(errorOf([] { SupportedMaps::getInstance().getMap("broken"); }), "Map broken not available");
    // The registry is not left locked.
    EXPECT_NO_THROW(SupportedMaps::createMapping("after-broken", g_goodPlugin));
}

TEST(SupportedMapsTest, ConcurrentRequestsForOneIdentifierBuildOneMap)
{
    const int callsBefore = goodFactoryCalls();
    std::shared_ptr<ModbusMap> first;
    std::shared_ptr<ModbusMap> second;
    std::thread one([&first] { first = SupportedMaps::getMapping("raced", g_goodPlugin); });
    std::thread two([&second] { second = SupportedMaps::getMapping("raced", g_goodPlugin); });
    one.join();
    two.join();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_EQ(goodFactoryCalls(), callsBefore + 1);
}

} // namespace
} // namespace orv::modbus::test
