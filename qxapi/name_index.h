// SPDX-License-Identifier: MIT
/// A hash index by name for entries that are kept in a list or a tree.
#ifndef QXAPI_NAME_INDEX_H
#define QXAPI_NAME_INDEX_H

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "qxapi/guard.h"
#include "qxapi/sip_hash.h"

namespace rdm {

/// NameLink is the index's part of an entry.
template <typename Entry>
struct NameLink {
  Entry *next;    // of the same bucket
  uint64_t hash;  // of the name
};

/// NameIndex is a hash table with separate chaining that doubles as it fills. It does not own its entries; an entry has
/// a member `in_index` of type NameLink and a member function `name()`. Entries of equal names keep the order in which
/// they were added. It is a plain record: zeroed, it is empty; its owner calls release.
template <typename Entry>
struct NameIndex {
  struct Bucket {
    Entry *first;
    Entry *last;
  };
  Bucket *buckets;
  size_t size;  // buckets, a power of two, or 0
  size_t count;

  void release() noexcept { host_free(buckets); }

  /// add appends an entry to the others of its name. Returns false, without adding, if allocation fails for the first
  /// buckets; if it fails for more buckets, the existing ones are used.
  bool add(Entry *entry) noexcept {
    if (count >= size && !grow() && size == 0) return false;
    entry->in_index.hash = hash_of(entry->name());
    append(bucket_of(entry->in_index.hash), entry);
    ++count;
    return true;
  }

  /// find returns the first entry of a name, or null.
  Entry *find(std::string_view name) const noexcept {
    if (size == 0) return nullptr;
    const uint64_t hash = hash_of(name);
    Entry *entry = bucket_of(hash).first;
    while (entry != nullptr && !is_named(*entry, hash, name)) entry = entry->in_index.next;
    return entry;
  }

  /// take removes the first entry of a name and returns it, or null.
  Entry *take(std::string_view name) noexcept {
    if (size == 0) return nullptr;
    const uint64_t hash = hash_of(name);
    Bucket &bucket = bucket_of(hash);
    Entry *before = nullptr, *entry = bucket.first;
    for (; entry != nullptr && !is_named(*entry, hash, name); entry = entry->in_index.next) before = entry;
    if (entry == nullptr) return nullptr;
    (before != nullptr ? before->in_index.next : bucket.first) = entry->in_index.next;
    if (bucket.last == entry) bucket.last = before;
    --count;
    return entry;
  }

  /// replace puts an entry of the same name in the place of one that was added.
  void replace(Entry *old, Entry *entry) noexcept {
    entry->in_index = old->in_index;
    Bucket &bucket = bucket_of(old->in_index.hash);
    Entry **link = &bucket.first;
    while (*link != old) link = &(*link)->in_index.next;
    *link = entry;
    if (bucket.last == old) bucket.last = entry;
  }

  /// clear removes all entries and keeps the buckets.
  void clear() noexcept {
    std::fill_n(buckets, size, Bucket{});
    count = 0;
  }

  /// is_stale returns true if the entry was renamed since it was added.
  static bool is_stale(const Entry &entry) noexcept { return entry.in_index.hash != hash_of(entry.name()); }

 private:
  static uint64_t hash_of(std::string_view name) noexcept { return sip_hash(process_sip_key(), name); }

  static bool is_named(const Entry &entry, uint64_t hash, std::string_view name) noexcept {
    return entry.in_index.hash == hash && entry.name() == name;
  }

  Bucket &bucket_of(uint64_t hash) const noexcept { return buckets[hash & (size - 1)]; }

  static void append(Bucket &bucket, Entry *entry) noexcept {
    entry->in_index.next = nullptr;
    (bucket.last != nullptr ? bucket.last->in_index.next : bucket.first) = entry;
    bucket.last = entry;
  }

  bool grow() noexcept {
    constexpr size_t first_size = 16;
    NameIndex larger{nullptr, size == 0 ? first_size : size * 2, count};
    larger.buckets = host_new<Bucket>(larger.size).release();
    if (larger.buckets == nullptr) return false;
    for (size_t i = 0; i < size; ++i)
      for (Entry *entry = buckets[i].first, *next = nullptr; entry != nullptr; entry = next) {
        next = entry->in_index.next;
        append(larger.bucket_of(entry->in_index.hash), entry);
      }
    release();
    *this = larger;
    return true;
  }
};

}  // namespace rdm

#endif
