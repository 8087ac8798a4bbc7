// SPDX-License-Identifier: MIT
/// A SOIF object as the converters pass it on: with its attributes in the order of the text.
#ifndef SOIF_DESCRIPTION_H
#define SOIF_DESCRIPTION_H

#include <string>
#include <string_view>
#include <vector>

#include "catalog/object_view.h"

namespace rdm::soif_tool {

struct Attribute {
  std::string name;   // in lower case
  std::string value;  // any bytes
  bool operator==(const Attribute &) const = default;
};

struct Description {
  std::string template_name;
  std::string url;
  std::vector<Attribute> attributes;
  bool operator==(const Description &) const = default;
};

/// description_of returns what the parser makes of a text.
Description description_of(const catalog::ObjectView &object);

/// soif_of returns the text of a description, attributes in their order, those with an empty value too. If fault_of has
/// no fault, reading the text gives the same description again.
std::string soif_of(const Description &description);

/// fault_of returns the reason why a description cannot be written as SOIF, or an empty text.
std::string fault_of(const Description &description);

/// is_header returns true for the header of an RDM message or an export, which describes no resource.
bool is_header(const Description &description);

/// Instance is the name of a numbered instance, "author-12": its base and its number. Without a number, `number` is
/// empty and `base` the whole name.
struct Instance {
  std::string_view base, number;
};
/// instance_of splits a name. The result is valid as long as the name.
Instance instance_of(std::string_view name);

/// gather_instances moves the numbered instances of each name to the first of them, in the order of their numbers. A
/// catalog stores attributes in an order of its own.
void gather_instances(Description &description);

}  // namespace rdm::soif_tool

#endif
