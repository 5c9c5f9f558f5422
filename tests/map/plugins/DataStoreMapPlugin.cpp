// A map plug-in whose one holding register comes from a data-store channel
// (which does not exist, so the accessor keeps a device-creation watch).

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <memory>

extern "C" orv::modbus::ModbusMap* createMap()
{
    using namespace orv::modbus;
    auto channel = std::make_shared<cds::CdsChannelAccessor>("no-such-device", "value", cds::DataType::ChannelValue);
    return new ModbusMap(
        "data-store-map",
        {new HoldingRegisters(0, new cds::CdsUint32ToOneRegisterAccessor(channel, 1.0f), true, "value", "", "")},
        nullptr, ByteOrder::ABCD);
}
