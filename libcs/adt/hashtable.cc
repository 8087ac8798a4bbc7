// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <span>

#include <libcs/adt.h>

#include "libcs/adt/name_hash.h"
#include "libcs/adt/strings.h"
#include "libcs/guard.h"

using namespace rdm;

namespace {

constexpr int32_t default_buckets = 7;

std::span<cslist *> buckets_of(const cshashtable &table) {
  return {table.buckets, static_cast<size_t>(table.nbuckets)};
}

size_t bucket_index(const cshashtable &table, uint32_t hash_value) {
  return hash_value % static_cast<uint32_t>(table.nbuckets);
}

cslist *bucket_of(const cshashtable &table, const void *key) {
  return table.buckets[bucket_index(table, table.hash(key))];
}

HashTablePtr make_table(int32_t nbuckets) {
  HashTablePtr table(host_new<cshashtable>().release());
  if (!table) return table;
  table->buckets = host_new<cslist *>(static_cast<size_t>(nbuckets)).release();
  if (table->buckets == nullptr) return nullptr;
  table->nbuckets = nbuckets;
  for (cslist *&bucket : buckets_of(*table)) cslist_create(&bucket);
  return table;
}

/// install sets a callback in the table and its buckets.
template <typename Callback>
uint32_t install(cshashtable *table, Callback callback, Callback cshashtable::*of_table, Callback cslist::*of_list) {
  if (table == nullptr || callback == nullptr) return 1;
  table->*of_table = callback;
  for (cslist *bucket : buckets_of(*table))
    if (bucket != nullptr) bucket->*of_list = callback;
  return 0;
}

}  // namespace

uint32_t cshashtable_create(int32_t nbuckets, cshashtable **out) noexcept {
  *out = make_table(nbuckets < 1 ? default_buckets : nbuckets).release();
  if (*out == nullptr) return 1;
  cshashtable_set_hash(*out, cshashtable_hf_default);
  cshashtable_set_free(*out, std::free);
  cshashtable_set_copy(*out, copy_string);
  cshashtable_set_compare(*out, compare_strings);
  return 0;
}

uint32_t cshashtable_set_hash(cshashtable *t, cs_hash_fn f) noexcept {
  if (t == nullptr || f == nullptr) return 1;
  t->hash = f;
  return 0;
}

uint32_t cshashtable_set_copy(cshashtable *t, cs_copy_fn f) noexcept {
  return install(t, f, &cshashtable::copy, &cslist::copy);
}

uint32_t cshashtable_set_compare(cshashtable *t, cs_compare_fn f) noexcept {
  return install(t, f, &cshashtable::compare, &cslist::compare);
}

uint32_t cshashtable_set_free(cshashtable *t, cs_free_fn f) noexcept {
  return install(t, f, &cshashtable::free, &cslist::free);
}

uint32_t cshashtable_insert(cshashtable *t, const void *key, const void *item) noexcept {
  if (t == nullptr || cslist_append(bucket_of(*t, key), item) != 0) return 1;
  ++t->count;
  return 0;
}

uint32_t cshashtable_delete(cshashtable *t, const void *key) noexcept {
  if (t == nullptr || cslist_delete(bucket_of(*t, key), key) != 0) return 1;
  --t->count;
  return 0;
}

void *cshashtable_findhv(const cshashtable *t, const void *key, uint32_t hash_value) noexcept {
  return t == nullptr ? nullptr : cslist_find(t->buckets[bucket_index(*t, hash_value)], key);
}

void *cshashtable_find(const cshashtable *t, const void *key) noexcept {
  return t == nullptr ? nullptr : cslist_find(bucket_of(*t, key), key);
}

void *cshashtable_iterate(cshashtable *t, const void *key, const void *previous) noexcept {
  if (t == nullptr) return nullptr;
  bool found = key == nullptr || previous == nullptr;
  const size_t first = key == nullptr ? 0 : bucket_index(*t, t->hash(key));
  for (const cslist *bucket : buckets_of(*t).subspan(first)) {
    for (const cslist_node *node = bucket == nullptr ? nullptr : bucket->head; node != nullptr; node = node->next) {
      if (found && node->data != nullptr) return node->data;
      if (node->data == previous) found = true;
    }
  }
  return nullptr;
}

uint32_t cshashtable_free(cshashtable *t) noexcept {
  if (t == nullptr) return 1;
  for (cslist *bucket : buckets_of(*t)) cslist_do_free(bucket, 1);
  host_free(t->buckets);
  host_free(t);
  return 0;
}

uint32_t cshashtable_hf_default(const void *key) noexcept {
  return key == nullptr ? 0 : name_hash(static_cast<const char *>(key));
}

void cshashtable_stats(const cshashtable *t, cshashtable_statistics *out) noexcept {
  *out = {.items = t->count, .buckets = t->nbuckets, .longest = 0, .chained = 0, .mean = 0, .spread = 0};
  for (const cslist *bucket : buckets_of(*t)) {
    if (bucket == nullptr) continue;
    out->chained += bucket->count;
    out->longest = std::max(out->longest, static_cast<uint32_t>(bucket->count));
  }
  out->mean = static_cast<double>(out->chained) / t->nbuckets;
}
