#pragma once
// A map of consecutive holding registers, each an unsigned 32-bit channel of
// one data-store device ("c0", "c1", ...) through
// CdsUint32ToOneRegisterAccessor over CdsChannelAccessor: the path a map
// plug-in of store-backed registers takes. Shared by the end-to-end
// benchmark and its plug-in.

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/cds/CdsChannelAccessor.h>
#include <orv/modbus/cds/CdsUint32ToOneRegisterAccessor.h>

#include <cdsapi/DataStore.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orv::modbus::bench {

inline std::string benchChannelName(unsigned index)
{
    return "c" + std::to_string(index);
}

// Creates `device` with `count` uint32 channels of value 0; returns its id.
inline std::uint64_t seedBenchDevice(const std::string& device, unsigned count)
{
    auto& store = cdsapi::DataStore::instance();
    const std::uint64_t deviceId = store.createDevice(device);
    for (unsigned i = 0; i < count; ++i) {
        store.addChannel(deviceId, benchChannelName(i), zu::CValue(std::uint32_t{0}));
    }
    return deviceId;
}

// `wrap` may put something between the entry and its accessor (the
// benchmark's table probe); by default nothing.
using AccessorWrap =
    std::function<std::shared_ptr<RegistersDataAccessor>(unsigned, std::shared_ptr<RegistersDataAccessor>)>;

inline ModbusMap* makeStoreBackedMap(const std::string& mapId, const std::string& device, unsigned count,
                                     const AccessorWrap& wrap = {})
{
    std::vector<ModbusMapEntry*> entries;
    entries.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        auto channel = std::make_shared<cds::CdsChannelAccessor>(device, benchChannelName(i),
                                                                 cds::DataType::ChannelValue);
        std::shared_ptr<RegistersDataAccessor> accessor =
            std::make_shared<cds::CdsUint32ToOneRegisterAccessor>(channel, 1.0f);
        if (wrap) {
            accessor = wrap(i, std::move(accessor));
        }
        entries.push_back(new HoldingRegisters(static_cast<uint16_t>(i), accessor, true, benchChannelName(i), "", ""));
    }
    return new ModbusMap(mapId, std::move(entries), nullptr, ByteOrder::ABCD);
}

} // namespace orv::modbus::bench
