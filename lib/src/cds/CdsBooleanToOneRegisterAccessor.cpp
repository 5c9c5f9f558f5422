#include <orv/modbus/cds/CdsBooleanToOneRegisterAccessor.h>

#include <utility>

namespace orv::modbus::cds {

CdsBooleanToOneRegisterAccessor::CdsBooleanToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor))
{
    listenToCds(this);
}

CdsBooleanToOneRegisterAccessor::CdsBooleanToOneRegisterAccessor(CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor)
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

std::vector<uint16_t> CdsBooleanToOneRegisterAccessor::getData() const
{
    return readIfAvailable<std::vector<uint16_t>>([&] {
        return buildArrayFromBool(cdsAccessor().getCValue().as_bool());
    });
}

std::string CdsBooleanToOneRegisterAccessor::getDataRepresentation() const
{
    return "UInt16";
}

std::string CdsBooleanToOneRegisterAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] { return cdsAccessor().getCValue().as_bool() ? "1" : "0"; });
}

uint16_t CdsBooleanToOneRegisterAccessor::getSize() const
{
    return 1;
}

std::vector<uint16_t> CdsBooleanToOneRegisterAccessor::buildArrayFromBool(bool value) const
{
    return {static_cast<uint16_t>(value ? 1 : 0)};
}

void CdsBooleanToOneRegisterAccessor::callbackCdsEvent(const zu::CValue& value)
{
    publish([&] { return buildArrayFromBool(value.as_bool()); });
}

} // namespace orv::modbus::cds
