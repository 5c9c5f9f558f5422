#include "MapExport.h"

#include <orv/modbus/ModbusMap.h>

#include <cxxtools/csvdeserializer.h>
#include <cxxtools/serializationinfo.h>

#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace orv::modbusd {
namespace {

// A cell's text with what would end the cell or the row made harmless.
std::string markdownCell(const std::string& text)
{
    std::string cell;
    for (const char c : text) {
        if (c == '|') {
            cell += "\\|";
        } else if (c == '\n' || c == '\r') {
            cell += ' ';
        } else {
            cell += c;
        }
    }
    return cell;
}

std::string markdownRow(const cxxtools::SerializationInfo& row)
{
    std::string line = "|";
    for (const cxxtools::SerializationInfo& cell : row) {
        std::string text;
        cell.getValue(text);
        line += " " + markdownCell(text) + " |";
    }
    return line + "\n";
}

} // namespace

int MapExport::write(modbus::ModbusMap& map, bool oneBased, CommandLine::ExportFormat format, std::ostream& out,
                     std::ostream& err)
{
    if (!map.isMapAvailable()) {
        err << "orv-gw-modbusd: map \"" << map.getMapId() << "\" is not available:\n"
            << map.notAvailableUserMessage() << "\n";
        return 1;
    }
    const std::string csv = map.getCsv(oneBased);
    out << (format == CommandLine::ExportFormat::Markdown ? markdownOf(csv) : csv);
    return 0;
}

// The CSV is read back with the library that wrote it, so that both formats
// show the same columns in the same order and the same texts.
std::string MapExport::markdownOf(const std::string& csv)
{
    std::istringstream rows(csv);
    std::string separatorLine;
    std::getline(rows, separatorLine);
    cxxtools::CsvDeserializer deserializer;
    deserializer.delimiter(';');
    deserializer.readTitle(false);
    deserializer.read(rows);
    const cxxtools::SerializationInfo& table = deserializer.si();
    std::string markdown;
    for (auto row = table.begin(); row != table.end(); ++row) {
        markdown += markdownRow(*row);
        if (row == table.begin()) {
            markdown += "|";
            for (std::size_t column = 0; column < row->memberCount(); ++column) {
                markdown += "---|";
            }
            markdown += "\n";
        }
    }
    return markdown;
}

} // namespace orv::modbusd
