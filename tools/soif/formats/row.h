// SPDX-License-Identifier: MIT
/// The rows of tables as text.
#ifndef SOIF_FORMATS_ROW_H
#define SOIF_FORMATS_ROW_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/soif/byte_source.h"
#include "tools/soif/taker.h"

namespace rdm::soif_tool {

struct Row {
  std::vector<std::string> cells;
  std::string bytes;  // as they were read
  Place place;
  std::string fault;  // why it is no row; empty if it is one
};

/// RowSyntax is a way to write rows.
struct RowSyntax {
  /// read reads the next row that is not an empty line, into a row without cells. Returns false at the end. Throws a
  /// Failure if the row is too large.
  bool (*read)(ByteSource &source, Row &row);
  /// print returns a row with its line end.
  std::string (*print)(const std::vector<std::string> &cells);
};

/// Comma-separated values (RFC 4180): a cell with a comma, a quote or a line end is quoted, a quote in it is doubled,
/// and CR LF ends a row. Read is also LF alone.
extern const RowSyntax csv_rows;
/// Tab-separated values: tab, LF, CR and backslash in a cell are \t, \n, \r and \\. Another backslash is read as it is.
extern const RowSyntax tsv_rows;

}  // namespace rdm::soif_tool

#endif
