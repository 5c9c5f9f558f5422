#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A float data point, multiplied by a scale, served as two registers holding
// an IEEE-754 single in the map's word order.
//
// getData() serves value × scale × scale while the update callback serves
// value × scale and getStrValue() shows value × scale: getData scales before
// buildArrayFromFloat, which scales again. Maps rely on this as it is; with
// the usual scale 1.0 all three agree. A write divides by the scale once.
class CdsFloatAccessor : public CdsRegistersAccessorBase {
public:
    CdsFloatAccessor(std::shared_ptr<CdsDataAccessor> accessor, float scale, unsigned char decimals);
    CdsFloatAccessor(CdsDataAccessor* accessor, float scale, unsigned char decimals);
    ~CdsFloatAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::vector<uint16_t> getData() const override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromFloat(float value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;

private:
    float m_scale;
    unsigned char m_decimals;
};

} // namespace orv::modbus::cds
