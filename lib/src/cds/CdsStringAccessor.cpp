#include <orv/modbus/cds/CdsStringAccessor.h>

#include <utility>

namespace orv::modbus::cds {

CdsStringAccessor::CdsStringAccessor(unsigned short length, std::shared_ptr<CdsDataAccessor> accessor)
    : CdsRegistersAccessorBase(std::move(accessor), length)
{
    listenToCds(this);
}

CdsStringAccessor::CdsStringAccessor(unsigned short length, CdsDataAccessor* accessor)
    : CdsRegistersAccessorBase(accessor, length)
{
    listenToCds(this);
}

CdsStringAccessor::~CdsStringAccessor()
{
    stopListening();
}

void CdsStringAccessor::setData(const std::vector<uint16_t>& data)
{
    writeIfAvailable([&] {
        std::string text;
        text.reserve(data.size() * 2);
        for (const uint16_t word : data) {
            text.push_back(static_cast<char>(word >> 8));
            text.push_back(static_cast<char>(word & 0xFFu));
        }
        text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
        return text;
    });
}

std::string CdsStringAccessor::getDataRepresentation() const
{
    return "String";
}

std::string CdsStringAccessor::getStrValue() const
{
    return readIfAvailable<std::string>([&] {
        return cdsAccessor().getCValue().as_string().substr(0, std::size_t{getSize()} * 2);
    });
}

std::vector<uint16_t> CdsStringAccessor::buildArrayFromString(const std::string& text) const
{
    std::vector<uint16_t> words;
    words.reserve((text.size() + 1) / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const auto high = static_cast<uint16_t>(static_cast<unsigned char>(text[i]) << 8);
        const auto low = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0u;
        words.push_back(static_cast<uint16_t>(high | low));
    }
    return words;
}

std::vector<uint16_t> CdsStringAccessor::wordsOf(const zu::CValue& value) const
{
    return buildArrayFromString(value.as_string());
}

} // namespace orv::modbus::cds
