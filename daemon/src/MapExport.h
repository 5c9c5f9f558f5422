#pragma once
// The export of one map for people and tools: the map's own CSV, or the same
// columns and rows as a Markdown table for documents.

#include "CommandLine.h"

#include <iosfwd>
#include <string>

namespace orv::modbus {
class ModbusMap;
}

namespace orv::modbusd {

class MapExport {
public:
    // Writes the export to `out` and returns 0; for a map that is not
    // available writes its message to `err` instead and returns 1.
    static int write(modbus::ModbusMap& map, bool oneBased, CommandLine::ExportFormat format, std::ostream& out,
                     std::ostream& err);

    // The CSV text of ModbusMap::getCsv as a Markdown table.
    static std::string markdownOf(const std::string& csv);
};

} // namespace orv::modbusd
