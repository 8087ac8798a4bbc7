// SPDX-License-Identifier: MIT
/// The changes to a catalog that one transaction commits.
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

/// WriteBatch collects puts and erasures. The texts are in scratch files beside the database; a change takes about 50
/// bytes of memory, and URLs up to 16 MiB. The catalog must outlive the batch. The constructor, put, put_undated,
/// erase, number_of, get, of_url, url and record throw a Failure that names the scratch file if it cannot be created,
/// written or read.
class WriteBatch {
 public:
  explicit WriteBatch(const Catalog &catalog);

  /// put stores a record under a number and replaces the one that has this number. `url` is the URL of the record. If
  /// another number has this URL, erase it first: put does not.
  void put(uint32_t number, std::string_view url, std::string_view record);
  /// put_undated puts a record whose time of change set_dates fills in.
  void put_undated(uint32_t number, std::string_view url, const Undated &undated);
  /// erase removes the description of a number; `url` is its present URL.
  void erase(uint32_t number, std::string_view url);
  /// empty returns true if nothing was put or erased; count returns the number of calls of put and erase.
  bool empty() const { return entries_.empty(); }
  int64_t count() const { return static_cast<int64_t>(entries_.size()); }

  /// is_undated returns true if a record lacks its time of change. set_dates sets the time, in seconds since 1970, of
  /// all such records.
  bool is_undated() const { return undated_ > 0; }
  void set_dates(time_t time);
  /// note_change records that a time of change is used. newest_change returns the newest of these times and the times
  /// of set_dates, or 0 if there are none.
  void note_change(time_t time) { newest_change_ = std::max(newest_change_, time); }
  time_t newest_change() const { return newest_change_; }

  /// number_of and get return the results that Catalog::number_of and Catalog::get will have after the commit.
  std::optional<uint32_t> number_of(std::string_view url) const;
  std::optional<std::string> get(uint32_t number) const;

  /// Change is one put or erasure.
  struct Change {
    int64_t url_offset;     // of the URL in url_texts(); the database key follows it
    int64_t record_offset;  // in the scratch file of the records
    uint32_t number;        // of the description
    uint32_t url_hash;
    uint32_t url_size;
    uint32_t record_size;          // or `erased`
    uint32_t date_offset = dated;  // in the record, of the placeholder for the date
  };
  static constexpr uint32_t erased = UINT32_MAX, dated = UINT32_MAX;

  using Visitor = std::function<void(const Change &change, size_t position)>;
  /// each_number visits the last change of each number, each_url the last change of each URL, in the order of the calls
  /// of put and erase. at returns the change of a position.
  void each_number(const Visitor &visit) const;
  void each_url(const Visitor &visit) const;
  const Change &at(size_t position) const { return entries_.at(position); }
  /// of_number returns the last change of a number, of_url the last change of a URL, or null if there is none. The
  /// pointer is valid for the life of the batch.
  const Change *of_number(uint32_t number) const;
  const Change *of_url(std::string_view text) const;

  /// url returns the URL of a change, record the record of the put at a position, with its date if that is set.
  std::string url(const Change &change) const;
  std::string record(size_t position) const;
  /// read_record stores the same record in `text`, whose memory it uses again.
  void read_record(size_t position, std::string &text) const;
  /// url_texts returns the scratch file of the URLs. It belongs to the batch.
  const ScratchFile &url_texts() const { return url_texts_; }

 private:
  /// HashIndex finds entries by hash: open addressing with linear probing. A slot holds the position of an entry plus
  /// 1, or 0 if it is free.
  class HashIndex {
   public:
    template <typename Equal>
    uint32_t *find(uint32_t hash, Equal equal);
    template <typename HashOf>
    void grow(size_t entries, HashOf hash_at);

    std::vector<uint32_t> slots;
  };

  void add(uint32_t number, std::string_view url, int64_t record_offset, uint32_t record_size);
  const std::string *date_at(size_t position) const;
  uint32_t *slot_of_number(uint32_t number) const;
  uint32_t *slot_of_url(std::string_view text, uint32_t hash) const;

  const Catalog &catalog_;
  ScratchFile url_texts_, records_;
  std::deque<Change> entries_;
  /// Dates are the texts of set_dates, each with the number of entries at that time.
  std::vector<std::pair<size_t, std::string>> dates_;
  mutable HashIndex numbers_, urls_;
  size_t undated_ = 0;
  time_t newest_change_ = 0;
};

}  // namespace rdm::catalog

#endif
