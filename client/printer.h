// Printing query results the way psql prints them (aligned with border 1,
// or unaligned), from plain data so that it can be tested without a server.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace docsql {

struct Table {
    std::vector<std::string> headers;
    std::vector<bool> rightAlign;  // numeric columns
    std::vector<std::vector<std::optional<std::string>>> rows;  // nullopt = NULL
};

struct PrintOptions {
    bool unaligned = false;
    bool tuplesOnly = false;
    std::string fieldSeparator = "|";
    bool expanded = false;  // -x, \x: one block of "column | value" lines per row
    bool csv = false;       // --csv: comma-separated values with a header line
    std::string title;      // printed above an aligned table (describe commands)
};

std::string FormatTable(const Table &t, const PrintOptions &opts);

// Display width of UTF-8 text in terminal columns.
int DisplayWidth(const std::string &s);

// psql right-aligns columns of these types (by type OID).
bool IsNumericType(unsigned oid);

}  // namespace docsql
