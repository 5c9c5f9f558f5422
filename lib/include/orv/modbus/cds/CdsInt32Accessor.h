#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A signed 32-bit data point served as two registers in the map's word
// order.
class CdsInt32Accessor : public CdsRegistersAccessorBase {
public:
    explicit CdsInt32Accessor(std::shared_ptr<CdsDataAccessor> accessor);
    explicit CdsInt32Accessor(CdsDataAccessor* accessor);
    ~CdsInt32Accessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromInt32(int value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;
};

} // namespace orv::modbus::cds
