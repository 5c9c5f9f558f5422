#pragma once

#include <orv/modbus/cds/CdsCompositeAccessorBase.h>

#include <functional>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// Registers computed from several data points by the map's own functions:
// toRegisters turns the data points' values into the entry's registers,
// fromRegisters turns written registers into one value per data point (an
// invalid value for a data point not to be written), toText gives the text
// of the export. Any of them may be empty.
class CdsDataToRegistersAccessor : public CdsCompositeAccessorBase<RegistersDataAccessor> {
public:
    using ToRegisters = std::function<std::vector<uint16_t>(const std::vector<zu::CValue>&)>;
    using FromRegisters = std::function<std::vector<zu::CValue>(const std::vector<uint16_t>&)>;
    using ToText = std::function<std::string(const std::vector<zu::CValue>&)>;

    // Owns the data-store accessors from here on.
    CdsDataToRegistersAccessor(uint16_t size, const std::vector<CdsDataAccessor*>& accessors, ToRegisters toRegisters,
                               FromRegisters fromRegisters, ToText toText, const std::string& representation,
                               MissingAccessorPolicy policy);
    ~CdsDataToRegistersAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::vector<uint16_t> getData() const override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    void callbackCdsEvent(const zu::CValue& value, unsigned int index);

private:
    // The text of the registers alone, for a composite without toText.
    std::string registersText() const;

    ToRegisters m_toRegisters;
    FromRegisters m_fromRegisters;
    ToText m_toText;
    std::string m_representation;
};

} // namespace orv::modbus::cds
