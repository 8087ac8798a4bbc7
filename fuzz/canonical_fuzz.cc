// SPDX-License-Identifier: MIT
/// A record is passed as it is if and only if parsing and printing it gives the same bytes, and a selection of its
/// attributes only as the bytes that parsing with that accept list and printing gives. The input is accept lists, one
/// to a line up to an empty line, with commas between names; then the record.

#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/print.h"
#include "libcs/soif/canonical.h"

using namespace rdm;

namespace {

/// reprinted returns what parser and printer make of a record; nothing if it has no object.
std::string reprinted(std::string_view record, char **accept) {
  SoifReader reader(record);
  reader.accept(accept);
  const SoifPtr object = reader.next();
  return object ? fuzz::print(object.get()) : std::string();
}

std::string joined(const soif::Pieces &pieces) {
  std::string text;
  for (const std::string_view piece : pieces) text += piece;
  fuzz::require(text.size() == pieces.size(), "the size is not that of the pieces");
  return text;
}

/// names_of splits a list at its commas in place.
std::vector<char *> names_of(std::string &list) {
  std::vector<char *> names;
  for (size_t at = 0; at <= list.size();) {
    const size_t comma = std::min(list.find(',', at), list.size());
    list[comma] = '\0';
    names.push_back(list.data() + at);
    at = comma + 1;
  }
  names.push_back(nullptr);
  return names;
}

void check_selection(std::string list, std::string_view record, bool is_canonical) {
  std::vector<char *> names = names_of(list);
  soif::Canonical canonical(names.data());
  soif::Pieces pieces;
  const bool is_passed = canonical.printed(record, pieces);
  fuzz::require(!is_passed || joined(pieces) == reprinted(record, names.data()), "a selection has other bytes");
  const bool is_full = std::distance(pieces.begin(), pieces.end()) == soif::Pieces::limit;
  fuzz::require(is_passed == is_canonical || is_full,
                "a selection of a canonical record was refused, or of another not");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input = fuzz::text(data, size);
  const size_t head = std::min(input.find("\n\n"), input.size());
  std::string_view lists = input.substr(0, head);
  const std::string_view record = input.substr(std::min(head + 2, input.size()));
  soif::Pieces pieces;
  const bool is_canonical = soif::Canonical().printed(record, pieces);
  fuzz::require(is_canonical == (!record.empty() && reprinted(record, nullptr) == record),
                "a record is passed that prints otherwise, or one that prints the same is not");
  fuzz::require(!is_canonical || joined(pieces) == record, "the pieces are not the record");
  for (int left = 4; left > 0; --left) {
    const size_t end = std::min(lists.find('\n'), lists.size());
    check_selection(std::string(lists.substr(0, end)), record, is_canonical);
    lists.remove_prefix(std::min(end + 1, lists.size()));
  }
  return 0;
}
