#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>
#include <orv/modbus/cds/ValueKind.h>

namespace orv::modbus::cds {

// A float data point served as one register: (value + offset) × factor,
// rounded half away from zero and clamped to the register's range.
// - Unsigned kind: the absolute value is rounded (-5.4 gives 5) and clamped
//   to 65535.
// - Signed kind: the value is clamped to -32768..32767, but the register
//   never holds a negative number on the read path: negative results read as
//   0. A write, however, takes the register as signed (0xFFFF is -1).
// A write stores register × (1 / factor) − offset.
class CdsFloatToOneRegisterAccessor : public CdsRegistersAccessorBase {
public:
    CdsFloatToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor, float factor, float offset,
                                  ValueKind kind);
    CdsFloatToOneRegisterAccessor(CdsDataAccessor* accessor, float factor, float offset, ValueKind kind);
    ~CdsFloatToOneRegisterAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    float multiplyAndOffsetData(float value) const;
    std::vector<uint16_t> buildArrayFromFloat(float value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;

private:
    bool isSigned() const;

    float m_factor;
    float m_offset;
    ValueKind m_kind;
};

} // namespace orv::modbus::cds
