#include <orv/modbus/cds/CdsBooleanToOneDiscreteAccessor.h>

#include <utility>

namespace orv::modbus::cds {

CdsBooleanToOneDiscreteAccessor::CdsBooleanToOneDiscreteAccessor(std::shared_ptr<CdsDataAccessor> accessor,
                                                                 DiscreteModifier modifier)
    : CdsOneValueAccessorBase(std::move(accessor), 1)
    , m_modifier(modifier)
{
    listenToCds(this);
}

CdsBooleanToOneDiscreteAccessor::CdsBooleanToOneDiscreteAccessor(CdsDataAccessor* accessor,
                                                                 DiscreteModifier modifier)
    : CdsOneValueAccessorBase(accessor, 1)
    , m_modifier(modifier)
{
    listenToCds(this);
}

CdsBooleanToOneDiscreteAccessor::~CdsBooleanToOneDiscreteAccessor()
{
    stopListening();
}

void CdsBooleanToOneDiscreteAccessor::setData(const std::vector<uint8_t>& data)
{
    if (data.empty()) {
        return;
    }
    // The inversion is symmetric: the stored value for a discrete is the
    // discrete for that stored value.
    writeIfAvailable([&] { return discreteOf(data.front() != 0); });
}

std::string CdsBooleanToOneDiscreteAccessor::getDataRepresentation() const
{
    return "Boolean";
}

std::string CdsBooleanToOneDiscreteAccessor::getStrValue() const
{
    return readIfAvailable<std::string>(
        [&] { return discreteOf(cdsAccessor().getCValue().as_bool()) ? "1" : "0"; });
}

std::vector<uint8_t> CdsBooleanToOneDiscreteAccessor::buildArrayFromBool(bool value) const
{
    return {static_cast<uint8_t>(value ? 1 : 0)};
}

std::vector<uint8_t> CdsBooleanToOneDiscreteAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromBool(discreteOf(value.as_bool()));
}

bool CdsBooleanToOneDiscreteAccessor::discreteOf(bool stored) const
{
    return m_modifier == DiscreteModifier::None ? stored : !stored;
}

} // namespace orv::modbus::cds
