#include <orv/common/lwjson/Deserializer.h>

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

using orv::common::lwjson::Deserializer;
using orv::common::lwjson::ParseOptions;

constexpr std::string_view g_invalidJsonPrefix = "lwjson::deserializer invalid JSON: ";

void expectInvalidJson(std::string_view text, ParseOptions options = {})
{
    try {
        const Deserializer deserializer(text, options);
        ADD_FAILURE() << "accepted: " << text;
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(std::string_view(error.what()).starts_with(g_invalidJsonPrefix)) << error.what();
    }
}

TEST(DeserializerTest, MalformedJsonThrowsAStandardException)
{
    for (const char* text : {"", "   ", "{", "}", "{\"a\":}", "{\"a\" 1}", "[1,]", "{\"a\":1,}", "{\"a\":1} trailing",
                             "nul", "{'a':1}", "{a:1}", "[1 2]", "\"unterminated", "01", "+1", "NaN"}) {
        expectInvalidJson(text);
    }
}

TEST(DeserializerTest, MalformedJsonMessageSaysWhere)
{
    try {
        const Deserializer deserializer("{\n  \"a\": 1,\n  \"b\": ?\n}");
        FAIL() << "accepted";
    } catch (const std::exception& error) {
        EXPECT_NE(std::string(error.what()).find("line 3"), std::string::npos) << error.what();
    }
}

TEST(DeserializerTest, NumberBeyondDoubleRangeIsMalformed)
{
    expectInvalidJson("{\"a\": 1e400}");
}

TEST(DeserializerTest, InvalidUtf8IsMalformed)
{
    expectInvalidJson("{\"a\": \"\xff\xfe\"}");
}

TEST(DeserializerTest, CommentsNeedTheOption)
{
    const std::string_view text = "// defaults\n{ /* speed */ \"baud\": 5 }";
    expectInvalidJson(text);
    const Deserializer deserializer(text, ParseOptions{.allowComments = true});
    std::int32_t baud = 0;
    deserializer.getMember("baud").extractValue(baud);
    EXPECT_EQ(baud, 5);
}

TEST(DeserializerTest, ReadsOnlyTheGivenView)
{
    const std::string buffer = "{\"a\": 1}{\"not\": \"read\"}";
    const Deserializer deserializer(std::string_view(buffer).substr(0, 8));
    EXPECT_TRUE(deserializer.hasMember("a"));
    EXPECT_FALSE(deserializer.hasMember("not"));
}

TEST(DeserializerTest, RootCanBeAScalar)
{
    const Deserializer deserializer("  42 ");
    std::int32_t value = 0;
    deserializer.extractValue(value);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(deserializer.key(), "");
}

TEST(DeserializerTest, NullRootHasNoValue)
{
    const Deserializer deserializer("null");
    bool value = false;
    try {
        deserializer.extractValue(value);
        FAIL() << "extracted a value from null";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "Cannot get value from a non-scalar or null");
    }
}

TEST(DeserializerTest, RepeatedKeyKeepsTheLastValue)
{
    const Deserializer deserializer(R"({"a": 1, "a": 2})");
    std::int32_t value = 0;
    deserializer.getMember("a").extractValue(value);
    EXPECT_EQ(value, 2);
}

TEST(DeserializerTest, DeepNestingDoesNotExhaustTheStack)
{
    constexpr std::size_t depth = 100000;
    const std::string text = std::string(depth, '[') + std::string(depth, ']');
    const Deserializer deserializer(text);
    EXPECT_EQ(deserializer.size(), 1u);
}

TEST(DeserializerTest, DeepNestingWithAnErrorAtTheBottomThrows)
{
    constexpr std::size_t depth = 100000;
    std::string text(depth, '[');
    text.push_back('x');
    text.append(depth, ']');
    expectInvalidJson(text);
}

// The shape of the gateway's persistent configuration, walked the way the
// server defaults are read from it.
TEST(DeserializerTest, WalksAPersistentConfiguration)
{
    const Deserializer deserializer(R"({
        "zu.tk_proto.config.PersistentConfig": {
            "oobs": [
                {"data": {"modbus_server_configuration": {
                    "tcp": {"enabled": {"value": true}},
                    "rtu": {"enabled": {"value": false},
                            "baud": {"minValue": 1, "maxValue": 8, "value": 5}}}}},
                {"data": {"modbus_server_configuration": {"tcp": {"enabled": {"value": false}}}}}
            ]
        }
    })");
    const auto oobs = deserializer.getMember("zu.tk_proto.config.PersistentConfig").getMember("oobs");
    ASSERT_FALSE(oobs.empty());
    const auto configuration = (*oobs.begin()).getMember("data").getMember(std::string("modbus_server_configuration"));

    bool tcpEnabled = false;
    bool rtuEnabled = true;
    std::int32_t baudMin = 0;
    std::int32_t baudMax = 0;
    std::int32_t baud = 0;
    configuration.getMember("tcp").getMember("enabled").getMember("value").extractValue(tcpEnabled);
    const auto rtu = configuration.getMember("rtu");
    rtu.getMember("enabled").getMember("value").extractValue(rtuEnabled);
    rtu.getMember("baud").getMember("minValue").extractValue(baudMin);
    rtu.getMember("baud").getMember("maxValue").extractValue(baudMax);
    rtu.getMember("baud").getMember("value").extractValue(baud);

    EXPECT_TRUE(tcpEnabled);
    EXPECT_FALSE(rtuEnabled);
    EXPECT_EQ(baudMin, 1);
    EXPECT_EQ(baudMax, 8);
    EXPECT_EQ(baud, 5);
    try {
        rtu.getMember("stop_bits");
        FAIL() << "found a member that is not there";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "lwjson::deserializer \"stop_bits\" member not found");
    }
}

} // namespace
