#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// An unsigned 32-bit data point served as two registers in the map's word
// order.
class CdsUint32Accessor : public CdsRegistersAccessorBase {
public:
    explicit CdsUint32Accessor(std::shared_ptr<CdsDataAccessor> accessor);
    explicit CdsUint32Accessor(CdsDataAccessor* accessor);
    ~CdsUint32Accessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromInt32(unsigned int value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;
};

} // namespace orv::modbus::cds
