// The UPS map of the demo: the state of the uninterruptible power supply,
// served only once the gateway's power-distribution service runs. Until
// then the map is not available and requests for it go unanswered, as a
// master polling a UPS that is not there yet expects.

#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>
#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsFloatAccessor.h>
#include <orv/modbus/cds/CdsUint32Accessor.h>
#include <orv/modbus/cds/PowerDistributionAvailableAccessor.h>

#include <memory>
#include <vector>

namespace {

using namespace orv::modbus;

constexpr const char* g_ups = "ups";

std::shared_ptr<cds::CdsChannelAccessor> channel(const std::string& name)
{
    return std::make_shared<cds::CdsChannelAccessor>(g_ups, name, cds::DataType::ChannelValue);
}

} // namespace

extern "C" ModbusMap* createMap()
{
    std::vector<ModbusMapEntry*> entries{
        new Registers(0, new cds::CdsFloatAccessor(channel("BatteryCharge"), 1.0f, 1), false, "Battery charge",
                      "UPS battery charge, float ABCD", "%"),
        new Registers(2, new cds::CdsFloatAccessor(channel("OutputVoltage"), 1.0f, 1), false, "Output voltage",
                      "UPS output voltage, float ABCD", "V"),
        new Registers(4, new cds::CdsUint32Accessor(channel("RuntimeRemaining")), false, "Runtime remaining",
                      "Time the battery lasts at the present load, unsigned 32-bit", "s"),
        new Registers(6, new cds::CdsBooleanToOneRegisterAccessor(channel("OnBattery")), false, "On battery",
                      "The UPS runs from its battery, 0 or 1", ""),
    };
    // The service's configuration file is chosen at build time, so that the
    // demo runs on its own file and a gateway build on the service's.
    return new ModbusMap("ups", entries,
                         new cds::PowerDistributionAvailableAccessor(ORV_UPS_POWER_DISTRIBUTION_CONFIG),
                         ByteOrder::ABCD);
}
