#pragma once
// A data accessor for fuzzing the request path: it holds a fixed value,
// records every write a client's request pushes to it, and never reports a
// change of its own, so that whatever the tables hold was put there by the
// map or by a request.

#include <orv/modbus/DiscretesDataAccessor.h>
#include <orv/modbus/RegistersDataAccessor.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace orv::modbus::fuzz {

template <class Word, class Interface>
class RecordingAccessor : public Interface {
public:
    using Values = std::vector<Word>;

    RecordingAccessor(Values initial, bool available)
        : m_initial(std::move(initial))
        , m_available(available)
    {
    }

    void setData(const Values& data) override
    {
        m_writes.push_back(data);
    }

    Values getData() const override
    {
        return m_initial;
    }

    std::string getDataRepresentation() const override
    {
        return "fuzz";
    }

    bool isDataAvailable() const override
    {
        return m_available;
    }

    void setCallback(std::function<void(const Values&)>) override
    {
    }

    std::string getStrValue() const override
    {
        return {};
    }

    uint16_t getSize() const override
    {
        return static_cast<uint16_t>(m_initial.size());
    }

    const Values& initial() const
    {
        return m_initial;
    }

    const std::vector<Values>& writes() const
    {
        return m_writes;
    }

private:
    const Values m_initial;
    const bool m_available;
    std::vector<Values> m_writes;
};

using RecordingRegistersAccessor = RecordingAccessor<uint16_t, RegistersDataAccessor>;
using RecordingDiscretesAccessor = RecordingAccessor<uint8_t, DiscretesDataAccessor>;

} // namespace orv::modbus::fuzz
