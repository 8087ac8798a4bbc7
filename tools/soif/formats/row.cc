// SPDX-License-Identifier: MIT
#include "tools/soif/formats/row.h"

namespace rdm::soif_tool {
namespace {

/// RowReader reads the bytes of one row.
class RowReader {
 public:
  RowReader(ByteSource &source, Row &row) : source_(source), row_(row) {
    row_.place = {source.line(), source.column()};
  }

  int peek() { return source_.peek(); }
  int next() {
    const int c = source_.next();
    if (c != ByteSource::end) row_.bytes += static_cast<char>(c);
    source_.require_room(row_.bytes.size(), row_.place.line);
    return c;
  }
  /// ends_row returns true at the end of a row, and passes it: LF, CR LF, or the end of the input.
  bool ends_row() {
    if (peek() == ByteSource::end) return true;
    if (peek() != '\n') return false;
    next();
    return true;
  }
  void add(int c) { cell_ += static_cast<char>(c); }
  void end_cell() { row_.cells.push_back(std::move(cell_)), cell_.clear(); }
  void fail(const char *reason) {
    if (row_.fault.empty()) row_.fault = reason;
  }

 private:
  ByteSource &source_;
  Row &row_;
  std::string cell_;
};

/// read_quoted reads the rest of a quoted cell.
void read_quoted(RowReader &reader) {
  for (int c = reader.next(); c != ByteSource::end; c = reader.next()) {
    if (c == '"' && reader.peek() != '"') return;
    if (c == '"') reader.next();
    reader.add(c);
  }
  reader.fail("a quote is not closed");
}

/// read_plain reads a cell, or the rest of it, up to a separator or a line end.
void read_plain(RowReader &reader, bool after_quotes) {
  for (int c = reader.peek(); c != ',' && c != '\n' && c != ByteSource::end; c = reader.peek()) {
    reader.next();
    if (c == '\r' && reader.peek() == '\n') return;
    if (after_quotes) reader.fail("text after a closing quote");
    if (c == '"') reader.fail("a quote in a cell that is not quoted");
    reader.add(c);
  }
}

void read_csv_row(ByteSource &source, Row &row) {
  RowReader reader(source, row);
  do {
    const bool is_quoted = reader.peek() == '"';
    if (is_quoted) reader.next(), read_quoted(reader);
    read_plain(reader, is_quoted);
    reader.end_cell();
  } while (reader.peek() == ',' && reader.next() == ',');
  reader.ends_row();
}

/// escaped_char returns the character after a backslash, or 0 if the two are not an escape.
char escaped_char(int c) {
  switch (c) {
    case 't':
      return '\t';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case '\\':
      return '\\';
    default:
      return 0;
  }
}

void read_tsv_row(ByteSource &source, Row &row) {
  RowReader reader(source, row);
  for (int c = reader.peek(); c != ByteSource::end && c != '\n'; c = reader.peek()) {
    reader.next();
    if (c == '\t') {
      reader.end_cell();
    } else if (c == '\r' && (reader.peek() == '\n' || reader.peek() == ByteSource::end)) {
      break;
    } else if (const char escaped = c == '\\' ? escaped_char(reader.peek()) : '\0'; escaped != '\0') {
      reader.next();
      reader.add(escaped);
    } else {
      reader.add(c);
    }
  }
  reader.end_cell();
  reader.ends_row();
}

bool is_blank(const Row &row) { return row.fault.empty() && row.bytes.find_first_not_of("\r\n") == std::string::npos; }

template <void (*read_row)(ByteSource &, Row &)>
bool read_next(ByteSource &source, Row &row) {
  while (source.peek() != ByteSource::end) {
    row = {};
    read_row(source, row);
    if (!is_blank(row)) return true;
  }
  return false;
}

std::string csv_cell(const std::string &cell) {
  if (cell.find_first_of("\",\r\n") == std::string::npos) return cell;
  std::string quoted = "\"";
  for (const char c : cell) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

std::string tsv_cell(const std::string &cell) {
  constexpr std::string_view special = "\t\n\r\\", names = "tnr\\";
  std::string text;
  for (const char c : cell)
    if (const size_t which = special.find(c); which != std::string_view::npos)
      text.append(1, '\\').append(1, names[which]);
    else
      text += c;
  return text;
}

template <std::string (*print_cell)(const std::string &), char separator>
std::string print_row(const std::vector<std::string> &cells) {
  std::string text;
  for (size_t i = 0; i < cells.size(); ++i) text.append(i == 0 ? 0 : 1, separator).append(print_cell(cells[i]));
  return text + (separator == ',' ? "\r\n" : "\n");
}

}  // namespace

const RowSyntax csv_rows{read_next<read_csv_row>, print_row<csv_cell, ','>};
const RowSyntax tsv_rows{read_next<read_tsv_row>, print_row<tsv_cell, '\t'>};

}  // namespace rdm::soif_tool
