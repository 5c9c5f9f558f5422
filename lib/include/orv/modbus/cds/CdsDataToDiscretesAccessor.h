#pragma once

#include <orv/modbus/cds/CdsCompositeAccessorBase.h>

#include <functional>
#include <string>
#include <vector>

namespace orv::modbus::cds {

// Discretes computed from several data points by the map's own functions:
// toBits turns the data points' values into the entry's bits, fromBits turns
// written bits (one flag per data point) into one value per data point (an
// invalid value for a data point not to be written). Either may be empty.
class CdsDataToDiscretesAccessor : public CdsCompositeAccessorBase<DiscretesDataAccessor> {
public:
    using ToBits = std::function<std::vector<bool>(const std::vector<zu::CValue>&)>;
    using FromBits = std::function<std::vector<zu::CValue>(const std::vector<bool>&)>;

    // Owns the data-store accessors from here on.
    CdsDataToDiscretesAccessor(uint16_t size, const std::vector<CdsDataAccessor*>& accessors, ToBits toBits,
                               FromBits fromBits, MissingAccessorPolicy policy);
    ~CdsDataToDiscretesAccessor() override;

    void setData(const std::vector<uint8_t>& data) override;
    std::vector<uint8_t> getData() const override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    // Exactly getSize() bytes, 1 for true: extra bits dropped, missing
    // ones 0.
    std::vector<uint8_t> buildArrayFromBool(const std::vector<bool>& bits) const;
    // One flag per data point, true only for a byte that is exactly 1:
    // extra bytes dropped, missing ones false.
    std::vector<bool> buildArrayFromUint8(const std::vector<uint8_t>& bytes) const;

    void callbackCdsEvent(const zu::CValue& value, unsigned int index);

private:
    ToBits m_toBits;
    FromBits m_fromBits;
};

} // namespace orv::modbus::cds
