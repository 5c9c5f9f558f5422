#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>

#include <utility>

namespace orv::modbus::cds {

CdsBooleanToOneRegisterAccessor::CdsBooleanToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor), 1)
{
    listenToCds(this);
}

CdsBooleanToOneRegisterAccessor::CdsBooleanToOneRegisterAccessor(CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor, 1)
{
    listenToCds(this);
}

CdsBooleanToOneRegisterAccessor::~CdsBooleanToOneRegisterAccessor()
{
    stopListening();
}

void CdsBooleanToOneRegisterAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] { return !data.empty() && data.at(0) != 0; });
}

std::string CdsBooleanToOneRegisterAccessor::getDataRepresentation() const
{
    return "UInt16";
}

std::string CdsBooleanToOneRegisterAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] { return cdsAccessor().getCValue().as_bool() ? "1" : "0"; });
}

std::vector<uint16_t> CdsBooleanToOneRegisterAccessor::buildArrayFromBool(bool value) const
{
    return {static_cast<uint16_t>(value ? 1 : 0)};
}

std::vector<uint16_t> CdsBooleanToOneRegisterAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromBool(value.as_bool());
}

} // namespace orv::modbus::cds
