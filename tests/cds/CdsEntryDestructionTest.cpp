// An entry destroyed on one thread while the data store's notification
// thread is converting a change for it: the entry must cut its accessor's
// callback, and wait for the call in flight, before any part of it is
// destroyed. The notification is held inside the conversion (just before
// the entry is called) until the destruction has been started, so that
// the race detector's build sees every access of the late call against the
// destructor's.
#include "CdsStoreTest.h"

#include <orv/modbus/Discretes.h>
#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/cds/CdsDataToDiscretesAccessor.h>
#include <orv/modbus/cds/CdsDataToRegistersAccessor.h>

#include <gtest/gtest.h>

#include <modbus/modbus.h>

#include <atomic>
#include <memory>
#include <vector>

namespace orv::modbus::cds::test {
namespace {

class CdsEntryDestructionTest : public CdsStoreTest {
protected:
    void SetUp() override
    {
        CdsStoreTest::SetUp();
        m_tables = modbus_mapping_new(8, 8, 8, 8);
        ASSERT_NE(m_tables, nullptr);
        m_device = store().createDevice("drive");
        m_speed = store().addChannel(m_device, "Speed", zu::CValue(1.0f));
    }

    void TearDown() override
    {
        CdsStoreTest::TearDown();
        modbus_mapping_free(m_tables);
    }

    CdsDataAccessor* speed() const
    {
        return new CdsChannelAccessor(m_device, "Speed", DataType::ChannelValue);
    }

    // The conversion of the data point, which stops the notification thread
    // once the test has armed it, until the entry is being destroyed.
    template <typename Word>
    std::vector<Word> convert(const std::vector<zu::CValue>& values)
    {
        if (m_armed) {
            m_inside = true;
            EXPECT_TRUE(waitUntil([this] { return m_destroying.load(); }));
        }
        return {static_cast<Word>(values[0].as_float())};
    }

    // A one-register entry of the given kind on the data point.
    template <class Kind>
    std::unique_ptr<ModbusMapEntry> registerEntry()
    {
        return std::make_unique<Kind>(
            0,
            new CdsDataToRegistersAccessor(
                1, {speed()}, [this](const auto& values) { return convert<uint16_t>(values); }, nullptr, nullptr,
                "", MissingAccessorPolicy::AllExisting),
            true, "speed", "", "");
    }

    // Maps the entry, lets a change of the data point reach the conversion,
    // and destroys the entry while that notification is held there.
    void destroyWhileNotified(std::unique_ptr<ModbusMapEntry> entry)
    {
        entry->setMapping(m_tables);
        m_armed = true;
        store().setChannelCValue(m_speed, zu::CValue(7.0f));
        ASSERT_TRUE(waitUntil([this] { return m_inside.load(); }));
        m_destroying = true;
        entry.reset();
        m_armed = false;
        flush();
    }

    modbus_mapping_t* m_tables = nullptr;
    std::uint64_t m_device = 0;
    std::uint64_t m_speed = 0;
    std::atomic<bool> m_armed{false};
    std::atomic<bool> m_inside{false};
    std::atomic<bool> m_destroying{false};
};

TEST_F(CdsEntryDestructionTest, HoldingRegisterEntryIsNotCalledOnceItsDestructionBegins)
{
    destroyWhileNotified(registerEntry<HoldingRegisters>());
}

TEST_F(CdsEntryDestructionTest, LegacyRegisterEntryIsNotCalledOnceItsDestructionBegins)
{
    destroyWhileNotified(registerEntry<LegacyRegisters>());
}

TEST_F(CdsEntryDestructionTest, DiscreteEntryIsNotCalledOnceItsDestructionBegins)
{
    destroyWhileNotified(std::make_unique<Discretes>(
        0,
        new CdsDataToDiscretesAccessor(
            1, {speed()}, [this](const auto& values) { return convert<bool>(values); }, nullptr,
            MissingAccessorPolicy::AllExisting),
        true, "running", "", "on", "off"));
}

} // namespace
} // namespace orv::modbus::cds::test
