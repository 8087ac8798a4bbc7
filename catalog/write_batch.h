// SPDX-License-Identifier: MIT
/// What differs in the next snapshot of a catalog, and the making of that snapshot.
#ifndef CATALOG_WRITE_BATCH_H
#define CATALOG_WRITE_BATCH_H

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/catalog.h"
#include "catalog/os/file.h"
#include "catalog/record.h"

namespace rdm::catalog {

/// WriteBatch gathers what is put and erased. The texts lie in a scratch file; some forty bytes a change stay in
/// memory. The catalog must outlive it.
class WriteBatch {
 public:
  explicit WriteBatch(const Catalog &catalog);

  /// put gives a number to a description, in place of what had it. `url` is that of the record. A URL that is put under
  /// another number leaves the description of the old number where it is: erase it first.
  void put(uint32_t number, std::string_view url, std::string_view record);
  /// put_undated does the same with a description that gets its time of change from set_dates.
  void put_undated(uint32_t number, std::string_view url, const Undated &undated);
  /// erase removes the description of a number; `url` is the one it has so far.
  void erase(uint32_t number, std::string_view url);
  /// empty says whether nothing was put or erased.
  bool empty() const { return entries_.empty(); }
  /// count returns how often put and erase were called.
  int64_t count() const { return static_cast<int64_t>(entries_.size()); }

  /// is_undated returns true if a description waits for its time of change; set_dates gives it to all that do.
  bool is_undated() const { return undated_ > 0; }
  void set_dates(time_t time);
  /// note_change says that a time of change is in use; newest_change returns the newest of them, those of set_dates
  /// included, 0 without any.
  void note_change(time_t time) { newest_change_ = std::max(newest_change_, time); }
  time_t newest_change() const { return newest_change_; }

  /// number_of and get answer for the catalog as the changes leave it.
  std::optional<uint32_t> number_of(std::string_view url) const;
  std::optional<std::string> get(uint32_t number) const;

  /// Change is the last that happened to a number or to a URL.
  struct Change {
    int64_t offset;   // of the URL in the scratch file; database key and record follow it
    uint32_t number;  // of the description
    uint32_t url_hash;
    uint32_t url_size;
    uint32_t record_size;          // or `erased`
    uint32_t date_offset = dated;  // in the record, of the time that set_dates will give
  };
  static constexpr uint32_t erased = UINT32_MAX, dated = UINT32_MAX;

  using Visitor = std::function<void(const Change &)>;
  /// each_number visits the last change of each number, each_url that of each URL.
  void each_number(const Visitor &visit) const;
  void each_url(const Visitor &visit) const;
  /// of_number returns the last change of a number, null when there is none.
  const Change *of_number(uint32_t number) const;
  const Change *of_url(std::string_view text) const;

  std::string url(const Change &change) const { return text(change.offset, change.url_size); }
  std::string record(const Change &change) const;
  /// text returns bytes of the scratch file.
  std::string text(int64_t offset, size_t size) const;

 private:
  /// HashIndex finds entries by a hash: slots hold the place of an entry, from 1, each behind the first free one.
  class HashIndex {
   public:
    template <typename Equal>
    uint32_t *find(uint32_t hash, Equal equal);
    template <typename HashOf>
    void grow(size_t entries, HashOf hash_at);

    std::vector<uint32_t> slots;
  };

  void add(const Change &change, std::string_view url);
  uint32_t *slot_of_number(uint32_t number) const;
  uint32_t *slot_of_url(std::string_view text, uint32_t hash) const;

  const Catalog &catalog_;
  ScratchFile texts_;
  std::deque<Change> entries_;
  mutable HashIndex numbers_, urls_;
  size_t undated_ = 0;
  time_t newest_change_ = 0;
};

}  // namespace rdm::catalog

#endif
