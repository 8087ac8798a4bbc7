// SPDX-License-Identifier: MIT
/// Internals shared by the parser and the object model.
#ifndef LIBCS_SOIF_MODEL_H
#define LIBCS_SOIF_MODEL_H

#include <string_view>

#include "libcs/guard.h"

namespace rdm::soif {

using AvPairPtr = std::unique_ptr<AVPair, Deleter<avpair_free>>;

/// make_object is soif_create for texts without a NUL. Returns null if allocation fails.
SoifPtr make_object(std::string_view template_name, std::string_view url, int32_t nbuckets) noexcept;

/// make_avpair returns a pair that owns a copy of `name` and takes over `value`: `vsize` bytes and a NUL, or null.
/// Returns null, with `value` unchanged, if allocation fails.
AvPairPtr make_avpair(std::string_view name, HostText &value, int32_t vsize) noexcept;

/// CopySwitch replaces the copy function of a table for its lifetime.
class CopySwitch {
 public:
  CopySwitch(cshashtable *table, cs_copy_fn copy) noexcept : table_(table), before_(table->copy) {
    cshashtable_set_copy(table_, copy);
  }
  CopySwitch(const CopySwitch &) = delete;
  CopySwitch &operator=(const CopySwitch &) = delete;
  ~CopySwitch() { cshashtable_set_copy(table_, before_); }

 private:
  cshashtable *table_;
  cs_copy_fn before_;
};

/// insert_made counts an insertion of `vsize` bytes and moves `pair` into the table under `key`. The table's copy
/// function must be cslist_copy_nop (see CopySwitch). Returns false, with `pair` unchanged, if it is null or allocation
/// fails; the insertion is counted even then.
bool insert_made(SOIF *object, const char *key, AvPairPtr &pair, int32_t vsize) noexcept;

}  // namespace rdm::soif

#endif
