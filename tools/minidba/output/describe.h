// SPDX-License-Identifier: MIT
/// Formatting descriptions as JSON and as tables.
#ifndef MINIDBA_OUTPUT_DESCRIBE_H
#define MINIDBA_OUTPUT_DESCRIBE_H

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "libcs/guard.h"

namespace rdm::minidba {

using Json = nlohmann::ordered_json;

/// json_of returns a description as an object with number, template, url and attributes, in the order of the record.
/// The value of an attribute that occurs several times is an array.
Json json_of(uint32_t number, const SOIF *description);

/// text_of returns JSON on one line. Bytes that are not UTF-8 become U+FFFD.
std::string text_of(const Json &json);

/// tsv_of returns a line without its newline: number, URL and the values of the attributes, separated by tabs. The
/// values of an attribute and its numbered instances are joined with "; ". Tab, newline, carriage return and backslash
/// in a value are written as \t, \n, \r and \\.
std::string tsv_of(uint32_t number, const SOIF *description, const std::vector<std::string> &attributes);

/// JsonList writes a JSON array to a stream, with each element on a line. close ends the array. If `wanted` is false,
/// the list writes nothing.
class JsonList {
 public:
  explicit JsonList(std::ostream &out, bool wanted = true) : out_(out), wanted_(wanted) {}
  void add(const Json &element);
  void close();

 private:
  std::ostream &out_;
  bool wanted_;
  bool empty_ = true;
};

/// each_attribute calls `visit` with each AVPair of a description, in the order of the record.
template <typename Visitor>
void each_attribute(const SOIF *description, const Visitor &visit) {
  for (int32_t i = 0; i < description->attrs->nbuckets; ++i)
    for (const cslist_node *node = description->attrs->buckets[i]->head; node != nullptr; node = node->next)
      visit(*static_cast<const AVPair *>(node->data));
}

}  // namespace rdm::minidba

#endif
