// SPDX-License-Identifier: MIT
#include <algorithm>

#include "catalog/os/error.h"
#include "qxapi/ascii.h"
#include "qxapi/counted.h"
#include "tools/soif/formats/row.h"
#include "tools/soif/formats/table.h"
#include "tools/soif/marked_text.h"

namespace rdm::soif_tool {
namespace {

using Names = std::vector<std::string>;

constexpr size_t no_column = SIZE_MAX;

/// Columns says what the cells of a row are.
class Columns {
 public:
  /// Columns reads the first row. Throws a Failure.
  Columns(const Row &row, const NameMap &map, const std::string &input) {
    if (!row.fault.empty()) throw catalog::Failure(input + ":" + std::to_string(row.place.line) + ": " + row.fault);
    if (const size_t cr = row.bytes.find('\r'); cr != std::string::npos && cr + 2 < row.bytes.size())
      throw catalog::Failure(input + ": the first row contains a CR: rows end with LF or CR LF");
    for (const std::string &cell : row.cells) names_.push_back(unmarked(cell).value_or(cell));
    template_ = column_of(template_name, map);
    url_ = column_of(url_name, map);
    if (url_ == no_column)
      throw catalog::Failure(input + ": no column " + map.field_of(url_name) + "; --map can name another");
    for (std::string &name : names_) name = map.attribute_of(name);
  }

  size_t count() const { return names_.size(); }

  /// add puts a cell into a description.
  void add(Description &description, size_t column, std::string value) const {
    if (value.empty()) return;
    if (column == url_)
      description.url = std::move(value);
    else if (column == template_)
      description.template_name = std::move(value);
    else
      description.attributes.push_back({names_[column], std::move(value)});
  }

 private:
  /// column_of finds the column of the URL or the template: the one that the map names, "@url" or "url".
  size_t column_of(const char *which, const NameMap &map) const {
    const auto is_same = [](const std::string &a, const std::string &b) { return ascii::iequals(a, b); };
    const auto find = [&](const std::string &wanted) {
      const auto at =
          std::find_if(names_.begin(), names_.end(), [&](const auto &name) { return is_same(name, wanted); });
      return at == names_.end() ? no_column : static_cast<size_t>(at - names_.begin());
    };
    const size_t unambiguous = map.knows(which) ? no_column : find(which);
    return unambiguous != no_column ? unambiguous : find(map.field_of(which));
  }

  Names names_;
  size_t template_ = no_column, url_ = no_column;
};

/// description_in returns the description in a row, or sets the fault of the row.
Description description_in(Row &row, const Columns &columns, const Conversion &conversion) {
  Description description{conversion.template_name, "", {}};
  if (row.fault.empty() && row.cells.size() != columns.count())
    row.fault = counted(row.cells.size(), "cell") + " instead of " + std::to_string(columns.count());
  for (size_t i = 0; i < row.cells.size() && row.fault.empty(); ++i) {
    std::optional<std::string> value = unmarked(row.cells[i]);
    if (value)
      columns.add(description, i, std::move(*value));
    else
      row.fault = "cell " + std::to_string(i + 1) + " is not base64";
  }
  return description;
}

void read_table(const RowSyntax &syntax, ByteSource &source, const Conversion &conversion, Taker &taker) {
  Row row;
  if (!syntax.read(source, row)) return;
  const Columns columns(row, conversion.map, source.name());
  taker.begin(row.bytes);
  while (syntax.read(source, row)) {
    Description description = description_in(row, columns, conversion);
    if (row.fault.empty())
      taker.take(description, row.place, row.bytes);
    else
      taker.reject(row.place, row.fault, row.bytes);
  }
}

}  // namespace

void read_csv(ByteSource &source, const Conversion &conversion, Taker &taker) {
  read_table(csv_rows, source, conversion, taker);
}

void read_tsv(ByteSource &source, const Conversion &conversion, Taker &taker) {
  read_table(tsv_rows, source, conversion, taker);
}

}  // namespace rdm::soif_tool
