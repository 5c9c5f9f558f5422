#include <orv/modbus/ModbusDefaultSettings.h>

#include <orv/common/lwjson/Deserializer.h>

#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace orv::modbus {
namespace {

using common::lwjson::Node;

// The three numbers describing one serial setting.
void readRange(const Node& setting, std::int32_t& minimum, std::int32_t& maximum, std::int32_t& value)
{
    setting.getMember("minValue").extractValue(minimum);
    setting.getMember("maxValue").extractValue(maximum);
    setting.getMember("value").extractValue(value);
}

} // namespace

ModbusDefaultSettings::ModbusDefaultSettings(std::string path)
    : filePath(std::move(path))
{
    std::ifstream file(filePath);
    if (!file) {
        throw std::runtime_error("Impossible to open file: " + filePath);
    }
    std::ostringstream text;
    text << file.rdbuf();
    try {
        read(text.str());
    } catch (const std::exception& error) {
        throw std::runtime_error("Impossible to parse file: " + filePath + " " + error.what());
    }
}

// Each field is stored as soon as it is read; a failure part-way leaves the
// constructor anyway, so no half-filled object is ever seen.
void ModbusDefaultSettings::read(const std::string& text)
{
    const common::lwjson::Deserializer root(text, common::lwjson::ParseOptions{});
    const Node oobs = root.getMember("zu.tk_proto.config.PersistentConfig").getMember("oobs");
    const auto first = oobs.begin();
    if (first == oobs.end()) {
        return;
    }
    const Node configuration = (*first).getMember("data").getMember("modbus_server_configuration");
    configuration.getMember("tcp").getMember("enabled").getMember("value").extractValue(tcpEnabled);
    const Node rtu = configuration.getMember("rtu");
    rtu.getMember("enabled").getMember("value").extractValue(rtuEnabled);
    readRange(rtu.getMember("parity"), parityMin, parityMax, parity);
    readRange(rtu.getMember("baud"), baudMin, baudMax, baud);
    readRange(rtu.getMember("stop_bits"), stopBitsMin, stopBitsMax, stopBits);
}

} // namespace orv::modbus
