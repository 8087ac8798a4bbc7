// SPDX-License-Identifier: MIT
#include "tools/rdmctl/class_order.h"

#include <optional>
#include <set>

#include "qxapi/ascii.h"

namespace rdm::rdmctl {
namespace {

using catalog::ObjectView;

std::string value_of(const ObjectView &object, std::string_view name) {
  return std::string(object.find(name).value_or(""));
}

/// ClassOrder follows the loader from class to class.
class ClassOrder {
 public:
  /// fault_of returns what is wrong with the next object; empty if nothing is, or if it is no class.
  std::string fault_of(const ObjectView &object) {
    // The first taxonomy with an id counts.
    if (ascii::iequals(object.template_name(), "TAXONOMY") && !taxonomy_ && object.find("id"))
      taxonomy_ = value_of(object, "id");
    if (!ascii::iequals(object.template_name(), "CLASSIFICATION")) return "";
    const std::string id = value_of(object, "id");
    if (const std::string reason = reason_to_omit(object, id); !reason.empty())
      return "the class " + (id.empty() ? "" : '"' + id + "\" ") + "is omitted: " + reason;
    return placed_.insert(id).second ? "" : "the class \"" + id + "\" is there twice";
  }

 private:
  std::string reason_to_omit(const ObjectView &object, const std::string &id) const {
    for (const char *name : {"id", "parent-id", "taxonomy-id"})
      if (!object.find(name)) return std::string("it has no \"") + name + '"';
    if (!taxonomy_) return "no taxonomy is before it";
    if (!ascii::iequals(value_of(object, "taxonomy-id"), *taxonomy_))
      return "its taxonomy is \"" + value_of(object, "taxonomy-id") + "\", not \"" + *taxonomy_ + '"';
    const std::string parent = value_of(object, "parent-id");
    if (parent == id || (parent != "ROOT" && !placed_.contains(parent)))
      return "its parent \"" + parent + "\" is not before it";
    return "";
  }

  std::optional<std::string> taxonomy_;  // its id
  std::set<std::string> placed_;
};

}  // namespace

std::vector<std::string> class_faults(catalog::SoifStream &stream) {
  std::vector<std::string> faults;
  ClassOrder order;
  while (auto item = stream.next()) {
    const std::string fault = item->object ? order.fault_of(*item->object) : "";
    if (!fault.empty())
      faults.push_back(stream.name() + ":" + std::to_string(stream.place_of(item->offset).line) + ": error: " + fault);
  }
  return faults;
}

}  // namespace rdm::rdmctl
