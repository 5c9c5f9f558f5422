#include "FakeRegistersAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace orv::modbus::test {
namespace {

using ::testing::ElementsAre;
using orv::test::FakeRegistersAccessor;
using ::testing::IsNull;
using ::testing::NotNull;

// Records every mapping attached to it, in order.
class RecordingHoldingRegisters : public HoldingRegisters {
public:
    RecordingHoldingRegisters(uint16_t address, std::shared_ptr<std::vector<modbus_mapping_t*>> attached)
        : HoldingRegisters(address, new FakeRegistersAccessor(1, {7}), true, "recorded", "", "")
        , m_pAttached(std::move(attached))
    {
    }

    void setMapping(modbus_mapping_t* mapping) override
    {
        m_pAttached->push_back(mapping);
        HoldingRegisters::setMapping(mapping);
    }

private:
    std::shared_ptr<std::vector<modbus_mapping_t*>> m_pAttached;
};

class FailingRegistersAccessor : public FakeRegistersAccessor {
public:
    FailingRegistersAccessor()
        : FakeRegistersAccessor(1)
    {
    }

    std::vector<uint16_t> getData() const override
    {
        throw std::runtime_error("data store unreachable");
    }
};

// An accessor that fails while the map fills its tables makes construction
// fail; the entries attached before it are detached before the tables go,
// so that none of their notifications can write into freed memory.
TEST(ModbusMapFailedAttachTest, EntriesAttachedBeforeTheFailureAreDetachedFirst)
{
    auto attached = std::make_shared<std::vector<modbus_mapping_t*>>();
    std::vector<ModbusMapEntry*> entries{
        new RecordingHoldingRegisters(0, attached),
        new HoldingRegisters(1, new FailingRegistersAccessor, true, "failing", "", "")};

    EXPECT_THROW(ModbusMap("failing", entries, nullptr, ByteOrder::ABCD), std::runtime_error);
    EXPECT_THAT(*attached, ElementsAre(NotNull(), IsNull()));
}

} // namespace
} // namespace orv::modbus::test
