// A map plug-in whose map definition is broken: two entries claim the same
// holding register, so building the map throws.

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

namespace {

class SilentAccessor : public orv::modbus::RegistersDataAccessor {
public:
    void setData(const std::vector<uint16_t>& /*data*/) override
    {
    }
    std::vector<uint16_t> getData() const override
    {
        return {};
    }
    std::string getDataRepresentation() const override
    {
        return "";
    }
    bool isDataAvailable() const override
    {
        return true;
    }
    void setCallback(std::function<void(const std::vector<uint16_t>&)> /*callback*/) override
    {
    }
    std::string getStrValue() const override
    {
        return "";
    }
    uint16_t getSize() const override
    {
        return 1;
    }
};

orv::modbus::ModbusMapEntry* entry(const std::string& name)
{
    return new orv::modbus::HoldingRegisters(3, new SilentAccessor, true, name, "", "");
}

} // namespace

extern "C" orv::modbus::ModbusMap* createMap()
{
    return new orv::modbus::ModbusMap("broken", {entry("first"), entry("second")}, nullptr,
                                      orv::modbus::ByteOrder::ABCD);
}
