// The factory-defaults file: which keys are read, what an empty "oobs"
// means, and the two message forms of a file that cannot be used.

#include <orv/modbus/ModbusDefaultSettings.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <initializer_list>
#include <string>
#include <string_view>

#include <unistd.h>

namespace {

using orv::modbus::ModbusDefaultSettings;

constexpr const char* g_tcp = R"("tcp": {"enabled": {"value": true}})";
constexpr const char* g_parity = R"("parity": {"minValue": 0, "maxValue": 3, "value": 2})";
constexpr const char* g_baud = R"("baud": {"minValue": 1, "maxValue": 8, "value": 5})";
constexpr const char* g_stopBits = R"("stop_bits": {"minValue": 1, "maxValue": 2, "value": 1})";

// Joins texts (GCC 12 warns wrongly about chains of std::string's operator+).
std::string cat(std::initializer_list<std::string_view> parts)
{
    std::string text;
    for (const std::string_view part : parts) {
        text.append(part);
    }
    return text;
}

std::string rtu(std::string_view baud = g_baud, bool withStopBits = true)
{
    return cat({R"("rtu": {"enabled": {"value": false}, )", g_parity, ", ", baud, withStopBits ? ", " : "",
                withStopBits ? g_stopBits : "", "}"});
}

// The configuration with TCP enabled and the RTU part given.
std::string withTcp(std::string_view rtuPart)
{
    return cat({g_tcp, ", ", rtuPart});
}

std::string element(std::string_view configuration)
{
    return cat({R"({"data": {"other": 1, "modbus_server_configuration": {)", configuration, "}}}"});
}

std::string document(std::string_view elements)
{
    return cat({R"({"version": 3, "zu.tk_proto.config.PersistentConfig": {"oobs": [)", elements, "]}}"});
}

class ModbusDefaultSettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_path = std::filesystem::temp_directory_path()
                 / ("orv-defaults-" + std::to_string(::getpid()) + "-"
                    + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json");
    }

    void TearDown() override { std::filesystem::remove(m_path); }

    std::string write(const std::string& text)
    {
        std::ofstream(m_path) << text;
        return m_path.string();
    }

    // The message of the runtime_error the constructor throws on `text`.
    std::string failureOn(const std::string& text)
    {
        const std::string path = write(text);
        try {
            const ModbusDefaultSettings settings(path);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        ADD_FAILURE() << "accepted: " << text;
        return {};
    }

    std::string parsePrefix() const { return "Impossible to parse file: " + m_path.string() + " "; }

    std::filesystem::path m_path;
};

TEST_F(ModbusDefaultSettingsTest, ReadsEveryKeyOfTheFirstElement)
{
    const std::string path = write(document(element(withTcp(rtu()))));
    const ModbusDefaultSettings settings(path);
    EXPECT_EQ(settings.filePath, path);
    EXPECT_TRUE(settings.tcpEnabled);
    EXPECT_FALSE(settings.rtuEnabled);
    EXPECT_EQ(settings.parityMin, 0);
    EXPECT_EQ(settings.parityMax, 3);
    EXPECT_EQ(settings.parity, 2);
    EXPECT_EQ(settings.baudMin, 1);
    EXPECT_EQ(settings.baudMax, 8);
    EXPECT_EQ(settings.baud, 5);
    EXPECT_EQ(settings.stopBitsMin, 1);
    EXPECT_EQ(settings.stopBitsMax, 2);
    EXPECT_EQ(settings.stopBits, 1);
}

TEST_F(ModbusDefaultSettingsTest, EmptyOobsEnablesNothingAndLeavesEveryNumberZero)
{
    const std::string path = write(document(""));
    const ModbusDefaultSettings settings(path);
    EXPECT_EQ(settings.filePath, path);
    EXPECT_FALSE(settings.tcpEnabled);
    EXPECT_FALSE(settings.rtuEnabled);
    for (const std::int32_t number : {settings.parityMin, settings.parityMax, settings.parity, settings.baudMin,
                                      settings.baudMax, settings.baud, settings.stopBitsMin, settings.stopBitsMax,
                                      settings.stopBits}) {
        EXPECT_EQ(number, 0);
    }
}

TEST_F(ModbusDefaultSettingsTest, SecondElementOfOobsIsNeverRead)
{
    // The second element is not even of the right shape: reading it would fail.
    const std::string path = write(document(cat({element(withTcp(rtu())), R"(, {"data": 5})"})));
    const ModbusDefaultSettings settings(path);
    EXPECT_EQ(settings.baud, 5);
}

TEST_F(ModbusDefaultSettingsTest, SecondElementDoesNotStandInForAMissingKeyOfTheFirst)
{
    const std::string complete = element(withTcp(rtu()));
    const std::string error = failureOn(document(cat({element(withTcp(rtu(g_baud, false))), ", ", complete})));
    EXPECT_EQ(error, parsePrefix() + "lwjson::deserializer \"stop_bits\" member not found");
}

TEST_F(ModbusDefaultSettingsTest, MissingStopBitsFailsWithTheParseMessage)
{
    const std::string error = failureOn(document(element(withTcp(rtu(g_baud, false)))));
    EXPECT_TRUE(error.starts_with(parsePrefix())) << error;
    EXPECT_NE(error.find("stop_bits"), std::string::npos) << error;
}

TEST_F(ModbusDefaultSettingsTest, BaudAboveTheSigned32BitRangeFailsWithTheOutOfRangeReason)
{
    const std::string baud = R"("baud": {"minValue": 1, "maxValue": 8, "value": 2147483648})";
    const std::string error = failureOn(document(element(withTcp(rtu(baud)))));
    EXPECT_EQ(error, parsePrefix() + "lwjson::deserializer \"value\"=2147483648 value out of range");
}

TEST_F(ModbusDefaultSettingsTest, TextThatIsNotANumberFailsWithTheFormatReason)
{
    const std::string baud = R"("baud": {"minValue": "fast", "maxValue": 8, "value": 5})";
    const std::string error = failureOn(document(element(withTcp(rtu(baud)))));
    EXPECT_EQ(error, parsePrefix() + "lwjson::deserializer \"minValue\"=fast invalid number format");
}

TEST_F(ModbusDefaultSettingsTest, ObjectInPlaceOfANumberFailsAsNonScalar)
{
    const std::string baud = R"("baud": {"minValue": 1, "maxValue": {}, "value": 5})";
    const std::string error = failureOn(document(element(withTcp(rtu(baud)))));
    EXPECT_EQ(error, parsePrefix() + "Cannot get value from a non-scalar or null");
}

TEST_F(ModbusDefaultSettingsTest, NumberInPlaceOfABooleanFails)
{
    const std::string error = failureOn(document(element(cat({R"("tcp": {"enabled": {"value": 1}}, )", rtu()}))));
    EXPECT_TRUE(error.starts_with(parsePrefix())) << error;
}

TEST_F(ModbusDefaultSettingsTest, MalformedJsonFailsWithTheParseMessage)
{
    const std::string error = failureOn(R"({"zu.tk_proto.config.PersistentConfig": )");
    EXPECT_TRUE(error.starts_with(parsePrefix())) << error;
}

TEST_F(ModbusDefaultSettingsTest, MissingPersistentConfigFailsWithTheParseMessage)
{
    const std::string error = failureOn(R"({"oobs": []})");
    EXPECT_EQ(error, parsePrefix() + "lwjson::deserializer \"zu.tk_proto.config.PersistentConfig\" member not found");
}

TEST_F(ModbusDefaultSettingsTest, MissingFileFailsWithTheOpenMessage)
{
    try {
        const ModbusDefaultSettings settings(m_path.string());
        FAIL() << "a missing file was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "Impossible to open file: " + m_path.string());
    }
}

TEST_F(ModbusDefaultSettingsTest, UnreadableFileFailsWithTheOpenMessage)
{
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root reads any file";
    }
    const std::string path = write(document(""));
    std::filesystem::permissions(m_path, std::filesystem::perms::none);
    try {
        const ModbusDefaultSettings settings(path);
        FAIL() << "an unreadable file was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "Impossible to open file: " + path);
    }
}

} // namespace
