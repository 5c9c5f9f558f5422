// A site's map plug-in, written against the development package only.
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsUint32Accessor.h>

#include <memory>
#include <vector>

extern "C" orv::modbus::ModbusMap* createMap()
{
    using namespace orv::modbus;
    auto energy = std::make_shared<cds::CdsChannelAccessor>("meter-1", "Energy", cds::DataType::ChannelValue);
    std::vector<ModbusMapEntry*> entries{
        new Registers(0, new cds::CdsUint32Accessor(energy), false, "Energy", "Meter energy", "Wh")};
    return new ModbusMap("site", entries, nullptr, ByteOrder::ABCD);
}
