// SPDX-License-Identifier: MIT
/// An object for printing whose texts belong to the caller. Header only.
#ifndef LIBCS_SOIF_BORROWED_H
#define LIBCS_SOIF_BORROWED_H

#include <cstring>

#include <libcs/soif.h>

namespace rdm::soif {

/// BorrowedObject is an object of at most `limit` attributes that allocates nothing. The texts must stay valid while it
/// is used, and only the printer may use it: its table has one bucket and no callbacks. Attributes print in the order
/// of add.
template <size_t limit>
class BorrowedObject {
 public:
  BorrowedObject(const char *template_name, const char *url) noexcept {
    object_.template_name = const_cast<char *>(template_name);
    object_.url = const_cast<char *>(url);
    object_.attrs = &table_;
    table_.buckets = &bucket_;
    table_.nbuckets = 1;
  }
  BorrowedObject(const BorrowedObject &) = delete;
  BorrowedObject &operator=(const BorrowedObject &) = delete;

  /// add appends an attribute. A null value is ignored.
  void add(const char *name, const char *value) noexcept {
    if (value == nullptr) return;
    const auto index = static_cast<size_t>(list_.count++);
    pairs_[index] = {const_cast<char *>(name), const_cast<char *>(value), static_cast<int32_t>(std::strlen(value))};
    nodes_[index] = {&pairs_[index], nullptr};
    (index == 0 ? list_.head : nodes_[index - 1].next) = &nodes_[index];
  }

  const SOIF *get() const noexcept { return &object_; }

 private:
  AVPair pairs_[limit];
  cslist_node nodes_[limit];
  cslist list_{};
  cslist *bucket_ = &list_;
  cshashtable table_{};
  SOIF object_{};
};

}  // namespace rdm::soif

#endif
