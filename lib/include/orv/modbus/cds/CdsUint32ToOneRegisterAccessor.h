#pragma once

#include <orv/modbus/cds/BitmaskOp.h>
#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

#include <optional>

namespace orv::modbus::cds {

// An unsigned 32-bit data point served as one register: the low 16 bits of
// the value times a factor (truncated toward zero), or of the value XOR a
// mask. With the mask operation every write stores the mask itself, whatever
// the register holds (a "write anything to trigger" register).
//
// A default value makes the entry available even while the data point does
// not exist. The data point is then still what getData() reads and converts
// (an empty value reads as 0); the default itself is served as it is, without
// mask or factor, only by classes that narrow isDataAvailable() again.
class CdsUint32ToOneRegisterAccessor : public CdsRegistersAccessorBase {
public:
    // No mask operation, no default.
    CdsUint32ToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor, float factor);
    CdsUint32ToOneRegisterAccessor(CdsDataAccessor* accessor, float factor);
    // Factor 1.0.
    CdsUint32ToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor, BitmaskOp operation,
                                   unsigned int mask, std::optional<unsigned int> defaultValue);
    CdsUint32ToOneRegisterAccessor(CdsDataAccessor* accessor, BitmaskOp operation, unsigned int mask,
                                   std::optional<unsigned int> defaultValue);
    ~CdsUint32ToOneRegisterAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::vector<uint16_t> getData() const override;
    std::string getDataRepresentation() const override;
    bool isDataAvailable() const override;
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromUint32(unsigned int value, bool applyConversion) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;

private:
    float m_factor = 1.0f;
    BitmaskOp m_operation = BitmaskOp::None;
    std::uint32_t m_mask = 0;
    std::optional<unsigned int> m_defaultValue;
};

} // namespace orv::modbus::cds
