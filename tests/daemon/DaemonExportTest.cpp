// The map export on the command line: the CSV of a running configuration
// agrees with what a Modbus master reads, and a map that does not exist or
// is not available is reported instead of exported.

#include "ChildProcess.h"
#include "DaemonFilesTest.h"
#include "FreePort.h"
#include "Mbpoll.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using orv::test::ChildProcess;

// The fields of one CSV line: a quoted field may hold the separator, and a
// doubled quote inside it stands for one.
std::vector<std::string> splitFields(const std::string& line)
{
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
            fields.back() += '"';
            ++i;
        } else if (c == '"') {
            quoted = !quoted;
        } else if (c == ';' && !quoted) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

// One exported row, by the columns this test needs.
struct Row {
    int address;
    int registers;
    std::string type;
    std::string representation;
    std::string name;
    std::string value;
};

std::vector<Row> rowsOf(const std::string& csv)
{
    std::istringstream lines(csv);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "SEP=;");
    std::getline(lines, line);
    const auto header = splitFields(line);
    EXPECT_EQ(header.size(), 14u) << line;
    std::vector<Row> rows;
    while (std::getline(lines, line)) {
        const auto fields = splitFields(line);
        if (fields.size() != 14) {
            ADD_FAILURE() << "row with " << fields.size() << " fields: " << line;
            continue;
        }
        rows.push_back({std::stoi(fields[1]), std::stoi(fields[4]), fields[2], fields[6], fields[7], fields[13]});
    }
    return rows;
}

class DaemonExportTest : public orv::test::DaemonFilesTest {
protected:
    // The demo and UPS maps without the simulator, so that nothing moves
    // between the export and the reads.
    std::string writeStillConfig()
    {
        return write("still.json", R"({"server": {"tcp": {"enabled": true}},
            "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("},
                     {"id": "ups", "plugin": ")" ORV_UPS_PLUGIN R"("}],
            "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": ["^127\\.0\\.0\\.1$"]},
                         {"unitId": 2, "map": "ups", "allowedAddresses": ["^127\\.0\\.0\\.1$"]}],
            "dataStore": {"seedFile": ")" ORV_DEMO_SEED R"("}})");
    }

    std::string exportOf(const std::string& configPath, const std::vector<std::string>& options, int* status)
    {
        std::string command = std::string(ORV_DAEMON_BINARY) + " --config " + configPath;
        for (const std::string& option : options) {
            command += " " + option;
        }
        return orv::test::runAndCapture(command, 20s, status);
    }

    // What mbpoll reads for the row, written as the export writes it when
    // the two agree.
    void expectReadAsExported(const Row& row)
    {
        const std::string table = row.type == "Holding Register" ? "4" : "3";
        const std::string where = " -r " + std::to_string(row.address) + " -c ";
        const bool abcd = row.representation.find("(CDAB)") == std::string::npos;
        const std::string order = abcd ? " -B" : "";
        SCOPED_TRACE(row.name + " at " + std::to_string(row.address) + ", exported " + row.value);
        if (row.representation.starts_with("Float")) {
            const auto read = mbpoll("-t " + table + ":float" + order + where + "1");
            EXPECT_NEAR(std::stod(read.at(row.address)), std::stod(row.value), 0.006);
        } else if (row.representation.starts_with("UInt32") || row.representation.starts_with("Int32")) {
            const auto read = mbpoll("-t " + table + ":int" + order + where + "1");
            const auto word = static_cast<std::int32_t>(std::stoll(read.at(row.address)));
            const bool isUnsigned = row.representation.starts_with("UInt32");
            EXPECT_EQ(isUnsigned ? std::to_string(static_cast<std::uint32_t>(word)) : std::to_string(word), row.value);
        } else if (row.representation == "String") {
            const auto read = mbpoll("-t " + table + ":hex" + where + std::to_string(row.registers));
            std::string text;
            for (int reference = row.address; reference < row.address + row.registers; ++reference) {
                const auto word = static_cast<unsigned>(std::stoul(read.at(reference), nullptr, 16));
                text += static_cast<char>(word >> 8);
                text += static_cast<char>(word & 0xFF);
            }
            EXPECT_EQ(text.substr(0, text.find('\0')), row.value);
        } else if (row.type == "Discrete") {
            // One character a bit, as the coils read them.
            const auto read = mbpoll("-t 0" + where + std::to_string(row.registers));
            std::string bits;
            for (int reference = row.address; reference < row.address + row.registers; ++reference) {
                bits += read.at(reference);
            }
            EXPECT_EQ(bits, row.value);
        } else {
            ASSERT_EQ(row.registers, 1) << row.representation;
            const auto read = mbpoll("-t " + table + where + "1");
            const auto word = static_cast<std::uint16_t>(std::stoul(read.at(row.address)));
            const bool isSigned = row.representation == "Int16";
            if (row.value.find('.') != std::string::npos) {
                // A composite's own text may be more precise than its register.
                EXPECT_EQ(std::lround(std::stod(row.value)), word);
            } else {
                EXPECT_EQ(isSigned ? std::to_string(static_cast<std::int16_t>(word)) : std::to_string(word),
                          row.value);
            }
        }
    }

    std::map<int, std::string> mbpoll(const std::string& arguments)
    {
        const auto result = orv::test::runMbpoll(m_port, 1, arguments + " 127.0.0.1");
        EXPECT_EQ(result.status, 0) << arguments << "\n" << result.output;
        return result.values;
    }
};

TEST_F(DaemonExportTest, CsvAgreesFieldByFieldWithWhatAModbusMasterReads)
{
    const std::string config = writeStillConfig();
    int status = -1;
    const std::string csv = exportOf(config, {"--export", "demo", "--format", "csv"}, &status);
    ASSERT_EQ(status, 0) << csv;
    const auto rows = rowsOf(csv);
    ASSERT_GE(rows.size(), 20u) << csv;

    ChildProcess daemon(ORV_DAEMON_BINARY, {"--config", config, "--tcp-port", std::to_string(m_port)});
    ASSERT_TRUE(daemon.waitForOutput("serving Modbus TCP on port " + std::to_string(m_port), 20s))
        << daemon.standardError();
    for (const Row& row : rows) {
        expectReadAsExported(row);
    }
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.waitForExit(10s), 0);
}

TEST_F(DaemonExportTest, OneBasedExportShiftsEveryAddressByOne)
{
    const std::string config = writeStillConfig();
    int status = -1;
    const auto zeroBased = rowsOf(exportOf(config, {"--export", "demo"}, &status));
    const std::string oneBasedCsv = exportOf(config, {"--export", "demo", "--one-based"}, &status);
    EXPECT_EQ(status, 0);
    EXPECT_NE(oneBasedCsv.find("address (dec, 1-based)"), std::string::npos) << oneBasedCsv;
    const auto oneBased = rowsOf(oneBasedCsv);
    ASSERT_EQ(oneBased.size(), zeroBased.size());
    for (std::size_t i = 0; i < oneBased.size(); ++i) {
        EXPECT_EQ(oneBased[i].address, zeroBased[i].address + 1) << oneBased[i].name;
    }
}

TEST_F(DaemonExportTest, MarkdownHasTheCsvColumnsAndRows)
{
    const std::string config = writeStillConfig();
    int status = -1;
    const std::string csv = exportOf(config, {"--export", "demo"}, &status);
    const std::string markdown = exportOf(config, {"--export", "demo", "--format", "markdown"}, &status);
    ASSERT_EQ(status, 0) << markdown;
    std::istringstream lines(markdown);
    std::string header;
    std::string rule;
    std::getline(lines, header);
    std::getline(lines, rule);
    EXPECT_EQ(header, "| address (hex, 0-based) | address (dec, 0-based) | type | size in bytes | number of modbus "
                      "registers | writable | representation | name | description | unit | status to 0 | status to "
                      "1 | available | value |");
    EXPECT_EQ(rule, "|---|---|---|---|---|---|---|---|---|---|---|---|---|---|");
    const auto rows = rowsOf(csv);
    std::string line;
    for (const Row& row : rows) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_NE(line.find("| " + row.name + " |"), std::string::npos) << line;
        EXPECT_TRUE(line.ends_with("| " + row.value + " |")) << line;
    }
    EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST_F(DaemonExportTest, UnknownMapNamesTheMapsThatExist)
{
    const std::string config = writeStillConfig();
    int status = -1;
    const std::string output = exportOf(config, {"--export", "meter", "2>&1"}, &status);
    EXPECT_NE(status, 0);
    EXPECT_NE(output.find("no map \"meter\" in " + config + "; its maps are: demo, ups"), std::string::npos)
        << output;
    EXPECT_EQ(output.find("SEP=;"), std::string::npos) << output;
}

TEST_F(DaemonExportTest, UnavailableMapPrintsItsMessageAndFails)
{
    const std::string config = writeStillConfig();
    int status = -1;
    const std::string output
        = exportOf(config, {"--export", "ups", "--tcp-port", std::to_string(m_port), "2>&1"}, &status);
    EXPECT_NE(status, 0);
    EXPECT_NE(output.find("UPS map is not yet available on your system!\nPlease make sure that the card is "
                          "connected to a supported UPS and/or try later.\n"),
              std::string::npos)
        << output;
    EXPECT_EQ(output.find("SEP=;"), std::string::npos) << output;
    EXPECT_FALSE(orv::test::isListening(m_port));
}

TEST_F(DaemonExportTest, UnknownFormatIsRefusedWithUsage)
{
    int status = -1;
    const std::string output = exportOf(writeStillConfig(), {"--export", "demo", "--format", "pdf", "2>&1"}, &status);
    EXPECT_EQ(status, 2);
    EXPECT_NE(output.find("--format takes csv or markdown, not \"pdf\""), std::string::npos) << output;
}

} // namespace
