#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A text data point packed two bytes per register, first byte in the high
// half; an odd last byte leaves the low half 0. Bytes pass unchanged, so
// UTF-8 text goes through byte by byte. The array is neither padded nor cut
// to the entry's length: the entry fills or drops what does not fit. A
// written text ends at its first NUL byte.
class CdsStringAccessor : public CdsRegistersAccessorBase {
public:
    CdsStringAccessor(unsigned short length, std::shared_ptr<CdsDataAccessor> accessor);
    CdsStringAccessor(unsigned short length, CdsDataAccessor* accessor);
    ~CdsStringAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    // The text cut to what the entry's registers hold.
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromString(const std::string& text) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;
};

} // namespace orv::modbus::cds
