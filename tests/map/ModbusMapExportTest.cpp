#include "EntryList.h"
#include "FakeMapAvailableAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/Registers.h>

#include <gtest/gtest.h>

#include <sstream>

namespace orv::modbus::test {
namespace {

const std::string g_zeroBasedHeader = "address (hex, 0-based);address (dec, 0-based);type;size in bytes;number of modbus "
                                      "registers;writable;representation;name;description;unit;status to 0;status to "
                                      "1;available;value\n";
const std::string g_oneBasedHeader = "address (hex, 1-based);address (dec, 1-based);type;size in bytes;number of modbus "
                                     "registers;writable;representation;name;description;unit;status to 0;status to "
                                     "1;available;value\n";

// The data rows of a CSV export, without the separator and header lines.
std::vector<std::string> rows(const std::string& csv)
{
    std::vector<std::string> result;
    std::istringstream text(csv);
    std::string line;
    for (int skipped = 0; skipped < 2 && std::getline(text, line); ++skipped) {
    }
    while (std::getline(text, line)) {
        result.push_back(line);
    }
    return result;
}

TEST(ModbusMapExportTest, ZeroBasedCsvStartsWithSeparatorAndHeader)
{
    EntryList entries;
    entries.add<HoldingRegisters>(0, 1);
    const ModbusMap map("m", entries.release(), nullptr, ByteOrder::ABCD);
    EXPECT_EQ(map.getCsv(false).rfind("SEP=;\n" + g_zeroBasedHeader, 0), 0U) << map.getCsv(false);
}

TEST(ModbusMapExportTest, UnavailableMapExportsItsMessageOnly)
{
    EntryList entries;
    entries.add<HoldingRegisters>(0, 1);
    const ModbusMap map("m", entries.release(), new FakeMapAvailableAccessor(false, "Service not started"),
                        ByteOrder::ABCD);
    EXPECT_EQ(map.getCsv(true), "SEP=;\nService not started\n");
    std::ostringstream direct;
    map.serializeIntoCsv(direct, false);
    EXPECT_EQ(direct.str(), "Service not started\n");
}

TEST(ModbusMapExportTest, OneBasedAddressesOfATwoRegisterHoldingEntry)
{
    EntryList entries;
    entries.add<HoldingRegisters>(9, 2, false, {}, "power");
    const ModbusMap map("m", entries.release(), nullptr, ByteOrder::ABCD);
    const std::string csv = map.getCsv(true);
    EXPECT_EQ(csv.rfind("SEP=;\n" + g_oneBasedHeader, 0), 0U) << csv;
    EXPECT_EQ(rows(csv), std::vector<std::string>{"0xA;10;Holding Register;4;2;false;fake;power;description of "
                                                  "power;unit;;;true;fake value"});
}

TEST(ModbusMapExportTest, DiscreteSizeInBytesIsItsBitCount)
{
    EntryList entries;
    entries.addDiscretes(26, 1, true, {}, "door");
    const ModbusMap map("m", entries.release(), nullptr, ByteOrder::ABCD);
    EXPECT_EQ(rows(map.getCsv(false)), std::vector<std::string>{"0x1A;26;Discrete;1;1;true;fake;door;description of "
                                                                 "door;;open;closed;true;fake value"});
}

TEST(ModbusMapExportTest, LegacyEntriesExportAsRegisters)
{
    EntryList entries;
    entries.add<LegacyRegisters>(0, 1, true, {}, "legacy");
    const ModbusMap map("m", entries.release(), nullptr, ByteOrder::ABCD);
    EXPECT_EQ(rows(map.getCsv(false)), std::vector<std::string>{"0x0;0;Register;2;1;true;fake;legacy;description of "
                                                                "legacy;unit;;;true;fake value"});
}

TEST(ModbusMapExportTest, EntriesAreListedOnceByKindThenAddress)
{
    EntryList entries;
    entries.addDiscretes(0, 3, false, {}, "bits");
    entries.add<HoldingRegisters>(4, 1, true, {}, "holding high");
    entries.add<HoldingRegisters>(1, 2, true, {}, "holding low");
    entries.add<Registers>(2, 2, false, {}, "input");
    auto unavailable = entries.add<LegacyRegisters>(8, 4, false, {}, "legacy");
    unavailable->setAvailable(false);
    const ModbusMap map("m", entries.release(), nullptr, ByteOrder::ABCD);
    EXPECT_EQ(rows(map.getCsv(false)),
              (std::vector<std::string>{
                  "0x8;8;Register;8;4;false;fake;legacy;description of legacy;unit;;;false;fake value",
                  "0x2;2;Register;4;2;false;fake;input;description of input;unit;;;true;fake value",
                  "0x1;1;Holding Register;4;2;true;fake;holding low;description of holding low;unit;;;true;fake value",
                  "0x4;4;Holding Register;2;1;true;fake;holding high;description of holding high;unit;;;true;fake "
                  "value",
                  "0x0;0;Discrete;3;3;false;fake;bits;description of bits;;open;closed;true;fake value",
              }));
}

// One-based, the last address has no 16-bit hexadecimal text of its own:
// makeHexAddress takes 16 bits and shows 0x0, while the decimal column
// counts on.
TEST(ModbusMapExportTest, OneBasedLastAddressWrapsOnlyInHexadecimal)
{
    EntryList entries;
    entries.add<HoldingRegisters>(65535, 1, false, {}, "last");
    const ModbusMap map("m", entries.release(), nullptr, ByteOrder::ABCD);
    EXPECT_EQ(rows(map.getCsv(true)), std::vector<std::string>{"0x0;65536;Holding Register;2;1;false;fake;last;"
                                                               "description of last;unit;;;true;fake value"});
    EXPECT_EQ(rows(map.getCsv(false)), std::vector<std::string>{"0xFFFF;65535;Holding Register;2;1;false;fake;last;"
                                                                "description of last;unit;;;true;fake value"});
}

} // namespace
} // namespace orv::modbus::test
