#pragma once

#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

// A boolean data point served as one register holding 0 or 1; any non-zero
// register written stores true.
class CdsBooleanToOneRegisterAccessor : public CdsRegistersAccessorBase {
public:
    explicit CdsBooleanToOneRegisterAccessor(std::shared_ptr<CdsDataAccessor> accessor);
    explicit CdsBooleanToOneRegisterAccessor(CdsDataAccessor* accessor);
    ~CdsBooleanToOneRegisterAccessor() override;

    void setData(const std::vector<uint16_t>& data) override;
    std::string getDataRepresentation() const override;
    std::string getStrValue() const override;

    std::vector<uint16_t> buildArrayFromBool(bool value) const;

protected:
    std::vector<uint16_t> wordsOf(const zu::CValue& value) const override;
};

} // namespace orv::modbus::cds
