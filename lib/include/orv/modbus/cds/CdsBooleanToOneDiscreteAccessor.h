#pragma once

#include <orv/modbus/cds/CdsOneValueAccessorBase.h>
#include <orv/modbus/cds/DiscreteModifier.h>

namespace orv::modbus::cds {

// A boolean data point served as one discrete (a coil or a discrete input),
// inverted on both ways unless the modifier is 0.
class CdsBooleanToOneDiscreteAccessor : public CdsOneValueAccessorBase<DiscretesDataAccessor> {
public:
    CdsBooleanToOneDiscreteAccessor(std::shared_ptr<CdsDataAccessor> accessor, DiscreteModifier modifier);
    CdsBooleanToOneDiscreteAccessor(CdsDataAccessor* accessor, DiscreteModifier modifier);
    ~CdsBooleanToOneDiscreteAccessor() override;

    void setData(const std::vector<uint8_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    // One byte, 1 for true; the modifier is applied before, not here.
    std::vector<uint8_t> buildArrayFromBool(bool value) const;

protected:
    std::vector<uint8_t> wordsOf(const zu::CValue& value) const override;

private:
    // The discrete's state for the data point's value.
    bool discreteOf(bool stored) const;

    DiscreteModifier m_modifier;
};

} // namespace orv::modbus::cds
