// SPDX-License-Identifier: MIT
#include "catalog/stream/dump_format.h"

#include "catalog/record.h"
#include "libcs/guard.h"
#include "qxapi/ascii.h"
#include "qxapi/number.h"

namespace rdm::catalog {
namespace {

constexpr char number_name[] = "minidba-number";
constexpr char next_number_name[] = "minidba-next-number";
constexpr char descriptions_name[] = "minidba-descriptions";

std::optional<uint32_t> number_in(const ObjectView &object, std::string_view name) {
  return parse_number<uint32_t>(object.find(name).value_or(""));
}

void insert(SOIF *object, const char *name, const std::string &value) {
  soif_insert(object, name, value.data(), static_cast<int32_t>(value.size()));
}

void insert(SOIF *object, const char *name, std::optional<uint32_t> number) {
  if (number) insert(object, name, std::to_string(*number));
}

}  // namespace

bool is_header(const SoifStream::Item &item) {
  return item.number == 1 && item.object && ascii::iequals(item.object->template_name(), "RDMHEADER");
}

std::string refusal(const SoifStream::Item &item) {
  return item.object && item.object->url() == "-" ? "no URL" : item.reason;
}

std::string print_header(const ExportHeader &header) {
  const SoifPtr object = make_soif("RDMHEADER", "-", 1);
  insert(object.get(), "rdm-version", "1.0");
  insert(object.get(), "rdm-type", "rd-response");
  insert(object.get(), next_number_name, header.next_number);
  insert(object.get(), descriptions_name, header.descriptions);
  return print(object.get()) + "\n\n";
}

ExportHeader read_header(const ObjectView &object) {
  return {number_in(object, next_number_name), number_in(object, descriptions_name)};
}

std::string with_number(const std::string &record, uint32_t number) {
  const std::string value = std::to_string(number);
  std::string text = record;
  text.insert(record.find('\n') + 1, attribute_head(number_name, value.size()) + value + '\n');
  return text;
}

std::optional<uint32_t> number_in(const ObjectView &object) {
  if (!object.find(number_name)) return 0;
  const std::optional<uint32_t> number = number_in(object, number_name);
  return number == 0u ? std::nullopt : number;
}

void drop_number(ObjectView &object) { object.erase(number_name); }

}  // namespace rdm::catalog
