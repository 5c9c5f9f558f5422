#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A text data point holding a decimal number (as std::stoul reads it),
// served as one register. Text that is no number throws
// std::invalid_argument("stoul"), a number too large for unsigned long
// (above 4294967295 on the gateway's 32-bit CPU) std::out_of_range("stoul"),
// and one above 65535 std::overflow_error; these
// reach the caller (and, for a change notification, the notifier). A write
// stores the register's decimal text.
class CdsStringToOneRegisterAccessor : public CdsRegistersAccessorBase {
public:
    explicit CdsStringToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor);
    explicit CdsStringToOneRegisterAccessor(CdsDataAccessor* accessor);
    ~CdsStringToOneRegisterAccessor() override;

    // Throws std::out_of_range for an empty array.
    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    // Empty for the empty text, else one register.
    std::vector<uint16_t> buildArrayFromString(const std::string& text) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;
};

} // namespace orv::modbus::cds
