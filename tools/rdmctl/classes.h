// SPDX-License-Identifier: MIT
/// The classes of a taxonomy description.
#ifndef RDMCTL_CLASSES_H
#define RDMCTL_CLASSES_H

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/object_view.h"

namespace rdm::rdmctl {

/// Class is a node of the tree.
struct Class {
  std::string id, description, parent;  // the parent is empty at the top level
  int depth;                            // 1 at the top level
};

/// Classes is the tree of a taxonomy description, as the library loads it.
class Classes {
 public:
  /// Throws a Failure if the file cannot be read or has no taxonomy.
  explicit Classes(const std::string &path);

  const std::string &id() const { return id_; }
  /// all returns the classes, parents before their children, children after each other.
  const std::vector<Class> &all() const { return all_; }
  bool has(const std::string &id) const { return ids_.contains(id); }

 private:
  std::string id_;
  std::vector<Class> all_;
  std::set<std::string> ids_;
};

/// each_class_of visits the value of "classification" and of its numbered instances in a description.
void each_class_of(const catalog::ObjectView &description, const std::function<void(const std::string &id)> &visit);

}  // namespace rdm::rdmctl

#endif
