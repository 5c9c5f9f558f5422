#pragma once
// A register accessor that costs next to nothing: it holds its words and
// keeps what a client writes, so that a benchmark of the request path
// measures the map and libmodbus, not a conversion.

#include <orv/modbus/RegistersDataAccessor.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::bench {

class ConstantRegistersAccessor : public RegistersDataAccessor {
public:
    explicit ConstantRegistersAccessor(std::vector<uint16_t> words)
        : m_words(std::move(words))
    {
    }

    void setData(const std::vector<uint16_t>& data) override
    {
        m_words = data;
    }

    std::vector<uint16_t> getData() const override
    {
        return m_words;
    }

    std::string getDataRepresentation() const override
    {
        return "constant";
    }

    bool isDataAvailable() const override
    {
        return true;
    }

    void setCallback(std::function<void(const std::vector<uint16_t>&)>) override
    {
    }

    std::string getStrValue() const override
    {
        return {};
    }

    uint16_t getSize() const override
    {
        return static_cast<uint16_t>(m_words.size());
    }

private:
    std::vector<uint16_t> m_words;
};

} // namespace orv::modbus::bench
