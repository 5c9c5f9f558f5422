#include <orv/modbus/cds/CdsStringToOneRegisterAccessor.h>

#include <stdexcept>
#include <utility>

namespace orv::modbus::cds {

CdsStringToOneRegisterAccessor::CdsStringToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor), 1)
{
    listenToCds(this);
}

CdsStringToOneRegisterAccessor::CdsStringToOneRegisterAccessor(CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor, 1)
{
    listenToCds(this);
}

CdsStringToOneRegisterAccessor::~CdsStringToOneRegisterAccessor()
{
    stopListening();
}

void CdsStringToOneRegisterAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] { return std::to_string(data.at(0)); });
}

std::string CdsStringToOneRegisterAccessor::getDataRepresentation() const
{
    return "Uint16";
}

std::string CdsStringToOneRegisterAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        const auto words = getData();
        return words.empty() ? std::string() : std::to_string(words.front());
    });
}

std::vector<uint16_t> CdsStringToOneRegisterAccessor::buildArrayFromString(const std::string& text) const
{
    if (text.empty()) {
        return {};
    }
    const unsigned long value = std::stoul(text);
    if (value > 0xFFFFul) {
        throw std::overflow_error("Invalid conversion from unsigned long to short.");
    }
    return {static_cast<uint16_t>(value)};
}

std::vector<uint16_t> CdsStringToOneRegisterAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromString(value.as_string());
}

} // namespace orv::modbus::cds
