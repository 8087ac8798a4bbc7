// SPDX-License-Identifier: MIT
/// What the parser and the object model share beyond the public interface.
#ifndef LIBCS_SOIF_MODEL_H
#define LIBCS_SOIF_MODEL_H

#include <string_view>

#include "libcs/guard.h"

namespace rdm::soif {

using AvPairPtr = std::unique_ptr<AVPair, Deleter<avpair_free>>;

/// make_object is soif_create for texts that need no NUL.
SoifPtr make_object(std::string_view template_name, std::string_view url, int32_t nbuckets) noexcept;

/// make_avpair returns a pair that owns a copy of `name` and, taken out of its guard, `value`: `vsize` bytes and a NUL,
/// or null. Null, with the guard as it was, when memory fails.
AvPairPtr make_avpair(std::string_view name, HostText &value, int32_t vsize) noexcept;

/// CopySwitch puts another copy function into force in a table for its lifetime.
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

/// insert_made counts an insertion of `vsize` bytes, whatever becomes of it, and puts `pair` into the table under
/// `key`, out of its guard. The table must be taking items as they are, by a CopySwitch to cslist_copy_nop. False,
/// with the guard as it was, when there is no pair or memory fails.
bool insert_made(SOIF *object, const char *key, AvPairPtr &pair, int32_t vsize) noexcept;

/// is_numbered_instance tells whether `attribute` is `base`, a hyphen and a decimal number.
bool is_numbered_instance(std::string_view base, std::string_view attribute) noexcept;

}  // namespace rdm::soif

#endif
