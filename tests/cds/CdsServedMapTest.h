#pragma once
// A map over the real data store, served to a real libmodbus client. The
// client goes first and the map last, with a flush between, so that no
// notification is still on its way into the map's tables when it goes.

#include "CdsStoreTest.h"
#include "ServedMap.h"

#include <orv/modbus/ModbusMap.h>

#include <memory>

namespace orv::modbus::cds::test {

class CdsServedMapTest : public CdsStoreTest {
protected:
    void serve(std::unique_ptr<ModbusMap> built)
    {
        map = std::move(built);
        served = std::make_unique<orv::test::ServedMap>(*map);
    }

    void TearDown() override
    {
        served.reset();
        flush();
        map.reset();
        CdsStoreTest::TearDown();
    }

    std::unique_ptr<ModbusMap> map;
    std::unique_ptr<orv::test::ServedMap> served;
};

} // namespace orv::modbus::cds::test
