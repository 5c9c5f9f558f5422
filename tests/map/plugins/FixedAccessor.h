#pragma once
// The register accessor of the test plug-ins: one register whose value
// never changes and which takes no writes.

#include <orv/modbus/RegistersDataAccessor.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::test {

class FixedAccessor : public RegistersDataAccessor {
public:
    FixedAccessor(std::vector<uint16_t> words, std::string representation, std::string text)
        : m_words(std::move(words))
        , m_representation(std::move(representation))
        , m_text(std::move(text))
    {
    }

    void setData(const std::vector<uint16_t>& /*data*/) override
    {
    }
    std::vector<uint16_t> getData() const override
    {
        return m_words;
    }
    std::string getDataRepresentation() const override
    {
        return m_representation;
    }
    bool isDataAvailable() const override
    {
        return true;
    }
    void setCallback(std::function<void(const std::vector<uint16_t>&)> /*callback*/) override
    {
    }
    std::string getStrValue() const override
    {
        return m_text;
    }
    uint16_t getSize() const override
    {
        return 1;
    }

private:
    std::vector<uint16_t> m_words;
    std::string m_representation;
    std::string m_text;
};

} // namespace orv::modbus::test
