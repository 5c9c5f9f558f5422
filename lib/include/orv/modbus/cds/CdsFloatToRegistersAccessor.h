#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A float data point served as an unsigned 32-bit integer over two
// registers: truncated toward zero, negative values as 0, values beyond the
// range as 0xFFFFFFFF. A write stores the float whose bit pattern is the
// written 32-bit word, without numeric conversion; devices that take a raw
// IEEE-754 pattern are configured through such entries.
class CdsFloatToRegistersAccessor : public CdsRegistersAccessorBase {
public:
    explicit CdsFloatToRegistersAccessor(std::shared_ptr<CdsDataAccessor> accessor);
    explicit CdsFloatToRegistersAccessor(CdsDataAccessor* accessor);
    ~CdsFloatToRegistersAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromFloat(float value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;
};

} // namespace orv::modbus::cds
