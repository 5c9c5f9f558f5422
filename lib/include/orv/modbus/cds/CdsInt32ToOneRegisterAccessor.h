#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A signed 32-bit data point times a factor, served as the low 16 bits of
// the product truncated toward zero (no rounding, no clamping). A write
// takes the register as unsigned (0xFFFF stores 65535) although the
// representation says "Int16"; maps rely on that.
class CdsInt32ToOneRegisterAccessor : public CdsRegistersAccessorBase {
public:
    CdsInt32ToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor, float factor);
    CdsInt32ToOneRegisterAccessor(CdsDataAccessor* accessor, float factor);
    ~CdsInt32ToOneRegisterAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    // The whole product, not cut to 16 bits.
    std::string getStrValue() const override;

    int multiplyData(int value) const;
    std::vector<uint16_t> buildArrayFromInt32(int value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;

private:
    float m_factor;
};

} // namespace orv::modbus::cds
