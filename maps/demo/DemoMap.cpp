// The demo map: a meter, its three phases, an I/O module and the gateway
// itself, served through every register and discrete accessor of the
// library. Built
// against the installed headers as any outside plug-in is, and loaded by
// orv-gw-modbusd through its "createMap" factory.
//
// All register kinds share one pair of tables sized by the legacy entry at
// 100, so that entry stays the highest register address of the map.

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>
#include <orv/modbus/cds/CdsAlarmToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>
#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>
#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>
#include <orv/modbus/cds/CdsDeviceAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/CdsFloatToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsFloatToRegistersAccessor.h>
#include <orv/modbus/cds/CdsInt32Accessor.h>
#include <orv/modbus/cds/CdsInt32ToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsStringAccessor.h>
#include <orv/modbus/cds/CdsStringToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsUint32Accessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using namespace orv::modbus;
using cds::CdsChannelAccessor;
using cds::DataType;

constexpr const char* g_meter = "meter-1";
constexpr std::uint64_t g_meterId = 100;
constexpr std::uint64_t g_gatewayId = 1;
constexpr const char* g_ioModule = "io-module";
constexpr std::uint64_t g_ioModuleId = 200;

// A float served in CDAB whatever the map's word order, so that one map
// shows both orders.
class CdabFloatAccessor : public cds::CdsFloatAccessor {
public:
    using CdsFloatAccessor::CdsFloatAccessor;
    void setByteOrder(ByteOrder) override { CdsFloatAccessor::setByteOrder(ByteOrder::CDAB); }
};

std::shared_ptr<CdsChannelAccessor> channel(const std::string& device, const std::string& name,
                                            DataType type = DataType::ChannelValue)
{
    return std::make_shared<CdsChannelAccessor>(device, name, type);
}

std::shared_ptr<CdsChannelAccessor> channel(std::uint64_t device, const std::string& name)
{
    return std::make_shared<CdsChannelAccessor>(device, name, DataType::ChannelValue);
}

std::shared_ptr<CdsChannelAccessor> phaseVoltage(unsigned phase)
{
    return std::make_shared<CdsChannelAccessor>(g_meterId, std::vector<unsigned>{phase}, "Voltage",
                                                DataType::ChannelValue);
}

void addMeasurements(std::vector<ModbusMapEntry*>& entries)
{
    using cds::ValueKind;
    entries.push_back(new Registers(0, new cds::CdsFloatAccessor(channel(g_meter, "Voltage"), 1.0f, 1), false,
                                    "Voltage", "Meter voltage, float ABCD", "V"));
    entries.push_back(new Registers(2, new CdabFloatAccessor(channel(g_meter, "Frequency"), 1.0f, 2), false,
                                    "Frequency (CDAB)", "Meter frequency, float CDAB", "Hz"));
    entries.push_back(new Registers(4, new cds::CdsFloatAccessor(channel(g_meter, "Current"), 1.0f, 2), false,
                                    "Current", "Meter current, float ABCD", "A"));
    entries.push_back(new Registers(6, new cds::CdsUint32Accessor(channel(g_meter, "Energy")), false, "Energy",
                                    "Meter energy counter, unsigned 32-bit", "Wh"));
    entries.push_back(new Registers(8, new cds::CdsInt32Accessor(channel(g_ioModuleId, "Counter")), false,
                                    "Counter", "I/O module counter, signed 32-bit (device by id)", ""));
    entries.push_back(new Registers(
        10, new cds::CdsFloatToOneRegisterAccessor(channel(g_meter, "Frequency"), 100.0f, 0.0f, ValueKind::Unsigned),
        false, "Frequency", "Meter frequency x 100, unsigned 16-bit", "cHz"));
    entries.push_back(new Registers(11, new cds::CdsInt32ToOneRegisterAccessor(channel(g_meter, "TemperatureOffset"), 1.0f),
                                    false, "Temperature offset", "Signed 32-bit value, low 16 bits", "K"));
    entries.push_back(new Registers(
        12, new cds::CdsFloatToOneRegisterAccessor(channel(g_meter, "PowerFactor"), 1000.0f, 0.0f, ValueKind::Signed),
        false, "Power factor", "Power factor x 1000, clamped to signed 16-bit", ""));
    entries.push_back(new Registers(
        13, new cds::CdsFloatToOneRegisterAccessor(channel(g_meter, "ActivePower"), 10.0f, 0.0f, ValueKind::Unsigned),
        false, "Active power", "Active power x 10, clamped to 65535", "dW"));
}

void addStatusAndTexts(std::vector<ModbusMapEntry*>& entries)
{
    entries.push_back(new Registers(
        14, new cds::CdsUint32ToOneRegisterAccessor(channel(g_meter, "Status"), cds::BitmaskOp::Xor, 0x0001u, 0u),
        false, "Status", "Status word with bit 0 inverted", ""));
    entries.push_back(new Registers(15, new cds::CdsBooleanToOneRegisterAccessor(channel(g_meter, "Tamper")), false,
                                    "Tamper", "Tamper switch, 0 or 1", ""));
    entries.push_back(new Registers(16, new cds::CdsStringToOneRegisterAccessor(channel(g_meter, "ModbusAddress")),
                                    false, "Modbus address", "Numeric text served as a number", ""));
    entries.push_back(new Registers(17, new cds::CdsStringAccessor(5, channel(g_meter, "Serial")), false,
                                    "Serial number", "Ten characters, two per register", ""));
}

void addPhasesAndGateway(std::vector<ModbusMapEntry*>& entries)
{
    for (unsigned phase = 0; phase < 3; ++phase) {
        const std::string name = "Voltage L" + std::to_string(phase + 1);
        entries.push_back(new Registers(static_cast<uint16_t>(22 + 2 * phase),
                                        new cds::CdsFloatAccessor(phaseVoltage(phase), 1.0f, 1), false, name,
                                        name + ", sub-device " + std::to_string(phase) + " of the meter", "V"));
    }
    entries.push_back(new Registers(28, new cds::CdsFloatToRegistersAccessor(channel(g_meter, "ActivePower")), false,
                                    "Active power (integer)", "Float served as unsigned 32-bit", "W"));
    entries.push_back(new Registers(30, new cds::CdsFloatAccessor(channel(g_gatewayId, "Temperature"), 1.0f, 1),
                                    false, "Gateway temperature", "Gateway temperature (device by id)", "degC"));
    entries.push_back(new Registers(32, new cds::CdsUint32Accessor(channel(g_gatewayId, "Uptime")), false, "Uptime",
                                    "Gateway uptime", "s"));
    entries.push_back(new Registers(
        34, new cds::CdsFloatAccessor(channel(g_meter, "Voltage", DataType::AlarmTriggerThreshold3), 1.0f, 1), false,
        "Voltage high-high threshold", "Alarm trigger threshold 3 of the meter voltage", "V"));
    entries.push_back(new Registers(
        36, new cds::CdsBooleanToOneRegisterAccessor(channel(g_meter, "Voltage", DataType::AlarmEnabled)), false,
        "Voltage alarm enabled", "Alarm of the meter voltage enabled, 0 or 1", ""));
}

void addSettings(std::vector<ModbusMapEntry*>& entries)
{
    using cds::ValueKind;
    entries.push_back(new HoldingRegisters(0, new cds::CdsFloatAccessor(channel(g_meter, "Setpoint"), 1.0f, 1), true,
                                           "Setpoint", "Meter set point, float ABCD", "degC"));
    entries.push_back(new HoldingRegisters(
        2,
        new cds::CdsFloatToOneRegisterAccessor(channel(g_meter, "Voltage", DataType::AlarmHysteresis), 10.0f, 0.0f,
                                               ValueKind::Unsigned),
        true, "Voltage alarm hysteresis", "Hysteresis x 10", "dV"));
    entries.push_back(new HoldingRegisters(
        3, new cds::CdsInt32ToOneRegisterAccessor(channel(g_meter, "Voltage", DataType::AlarmLevel), 1.0f), true,
        "Voltage alarm level", "Alarm level of the meter voltage", ""));
    entries.push_back(new HoldingRegisters(4, new cds::CdsBooleanToOneRegisterAccessor(channel(g_meter, "Enabled")),
                                           true, "Enabled", "Meter enabled, 0 or 1", ""));
    entries.push_back(new HoldingRegisters(5, new cds::CdsStringAccessor(8, channel(g_ioModule, "Label")), true,
                                           "Label", "I/O module label, up to 16 characters", ""));
    entries.push_back(new HoldingRegisters(13, new cds::CdsInt32ToOneRegisterAccessor(channel(g_meter, "Mode"), 1.0f),
                                           true, "Mode", "Operating mode", ""));
    entries.push_back(new HoldingRegisters(14, new cds::CdsBooleanToOneRegisterAccessor(channel(g_ioModule, "Relay1")),
                                           true, "Relay 1", "I/O module relay, 0 or 1", ""));
    entries.push_back(new LegacyRegisters(100, new cds::CdsFloatAccessor(channel(g_meter, "Frequency"), 1.0f, 2), true,
                                          "Frequency (legacy)", "Meter frequency, float ABCD, read with 3 or 4",
                                          "Hz"));
}

// A data point owned by a composite.
cds::CdsDataAccessor* point(const std::string& device, const std::string& name)
{
    return new CdsChannelAccessor(device, name, DataType::ChannelValue);
}

void addCoilsAndInputs(std::vector<ModbusMapEntry*>& entries)
{
    using cds::DiscreteModifier;
    entries.push_back(new Discretes(
        0, new cds::CdsBooleanToOneDiscreteAccessor(channel(g_ioModule, "Relay1"), DiscreteModifier::None), true,
        "Relay 1", "I/O module relay 1, a coil", "closed", "open"));
    // Relay 2 is wired normally closed: the coil is on while the relay is
    // released.
    entries.push_back(new Discretes(
        1, new cds::CdsBooleanToOneDiscreteAccessor(channel(g_ioModule, "Relay2"), DiscreteModifier::Inverted), true,
        "Relay 2 (inverted)", "I/O module relay 2, normally closed, a coil", "released", "energised"));
    const auto eachAsBit = [](const std::vector<zu::CValue>& values) {
        std::vector<bool> bits;
        std::transform(values.begin(), values.end(), std::back_inserter(bits),
                       [](const zu::CValue& value) { return value.as_bool(); });
        return bits;
    };
    entries.push_back(new Discretes(
        2,
        new cds::CdsDataToDiscretesAccessor(3, {point(g_ioModule, "Input1"), point(g_ioModule, "Input2"),
                                                point(g_ioModule, "Input3")},
                                            eachAsBit, nullptr, cds::MissingAccessorPolicy::AnyExisting),
        false, "Inputs 1-3", "I/O module digital inputs 1, 2 and 3", "on", "off"));
}

// The meter voltage's alarm state through each alarm type: 0 compares the
// value with the threshold flag, 1 to 4 the class of the most critical
// alarm (the simulator raises code 7 with flag 1, class 4, near the top of
// the voltage's swing).
void addAlarms(std::vector<ModbusMapEntry*>& entries)
{
    for (unsigned type = 0; type <= 4; ++type) {
        const std::string name = "Voltage alarm type " + std::to_string(type);
        entries.push_back(new Discretes(
            static_cast<uint16_t>(5 + type),
            new cds::CdsBooleanToOneDiscreteAccessor(
                std::make_shared<cds::CdsAlarmToOneDiscreteAccessor>(g_meter, "Voltage",
                                                                     static_cast<cds::AlarmType>(type)),
                cds::DiscreteModifier::None),
            false, name, "Meter voltage alarm state, alarm type " + std::to_string(type), "active", "inactive"));
    }
}

// The meter's identification texts and its number of sub-devices. By id: a
// device accessor given by name refuses to be built while no such device
// exists, and the map must load on a store without the meter. After a
// settings event of the meter (an attribute written, a sub-device added)
// these entries stay unavailable until the meter is gone and back.
void addDeviceAttributes(std::vector<ModbusMapEntry*>& entries)
{
    using cdsapi::DeviceAttribute;
    entries.push_back(new Registers(
        40, new cds::CdsStringAccessor(5, std::make_shared<cds::CdsDeviceAccessor>(g_meterId, DeviceAttribute::SerialNumber)),
        false, "Meter serial number (attribute)", "Device attribute SerialNumber, two characters a register", ""));
    entries.push_back(new Registers(
        45, new cds::CdsStringAccessor(4, std::make_shared<cds::CdsDeviceAccessor>(g_meterId, DeviceAttribute::Model)),
        false, "Meter model", "Device attribute Model, two characters a register", ""));
    entries.push_back(new Registers(
        49,
        new cds::CdsUint32ToOneRegisterAccessor(
            std::make_shared<cds::CdsDeviceAccessor>(g_meterId, static_cast<DeviceAttribute>(16)), 1.0f),
        false, "Meter sub-devices", "Number of sub-devices of the meter, every level", ""));
}

// Voltage times current, in VA, rounded and clamped to one register.
std::vector<uint16_t> apparentPower(const std::vector<zu::CValue>& values)
{
    const float voltAmperes = values[0].as_float() * values[1].as_float();
    return {static_cast<uint16_t>(std::clamp(std::lround(voltAmperes), 0L, 65535L))};
}

std::string apparentPowerText(const std::vector<zu::CValue>& values)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", static_cast<double>(values[0].as_float() * values[1].as_float()));
    return text;
}

// Bit i of the status word is data point i.
std::vector<uint16_t> packStatus(const std::vector<zu::CValue>& values)
{
    unsigned word = 0;
    for (std::size_t bit = 0; bit < values.size(); ++bit) {
        word |= values[bit].as_bool() ? 1u << bit : 0u;
    }
    return {static_cast<uint16_t>(word)};
}

// Bits 0 to 2 go back to their data points; the tamper bit (3) is only
// reported, so it gets an invalid value and is not written.
std::vector<zu::CValue> unpackStatus(const std::vector<uint16_t>& words)
{
    std::vector<zu::CValue> values;
    for (unsigned bit = 0; bit < 3; ++bit) {
        values.emplace_back((words.at(0) >> bit & 1u) != 0);
    }
    values.emplace_back();
    return values;
}

void addComposites(std::vector<ModbusMapEntry*>& entries)
{
    using cds::MissingAccessorPolicy;
    entries.push_back(new Registers(
        38,
        new cds::CdsDataToRegistersAccessor(1, {point(g_meter, "Voltage"), point(g_meter, "Current")}, apparentPower,
                                            nullptr, apparentPowerText, "", MissingAccessorPolicy::AllExisting),
        false, "Apparent power", "Voltage times current, rounded, clamped to 65535", "VA"));
    entries.push_back(new HoldingRegisters(
        15,
        new cds::CdsDataToRegistersAccessor(1,
                                            {point(g_ioModule, "Relay1"), point(g_ioModule, "Relay2"),
                                             point(g_meter, "Enabled"), point(g_meter, "Tamper")},
                                            packStatus, unpackStatus, nullptr, "Bit mask",
                                            MissingAccessorPolicy::AllExisting),
        true, "Status word",
        "Bit 0 relay 1, bit 1 relay 2, bit 2 meter enabled, bit 3 tamper (read-only); written bit by bit", ""));
}

} // namespace

extern "C" ModbusMap* createMap()
{
    std::vector<ModbusMapEntry*> entries;
    addMeasurements(entries);
    addStatusAndTexts(entries);
    addPhasesAndGateway(entries);
    addSettings(entries);
    addCoilsAndInputs(entries);
    addComposites(entries);
    addAlarms(entries);
    addDeviceAttributes(entries);
    return new ModbusMap("demo", entries, nullptr, ByteOrder::ABCD);
}
