// SPDX-License-Identifier: MIT
/// Reading records from a damaged hash file.
#ifndef CATALOG_HASH_RECOVERY_H
#define CATALOG_HASH_RECOVERY_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/os/file.h"
#include "hashdb/format.h"

namespace rdm::catalog {

/// RecoveryReader reads a file that is, or was, a hash file. It never writes.
class RecoveryReader {
 public:
  /// Origin is the way in which a record was found, the least reliable way first.
  enum Origin {
    in_bytes,   // on a damaged page: the end of an object and a key side by side
    on_page,    // on a page that no bucket is linked to: the record may have been replaced or erased
    in_bucket,  // in the bucket of its key
  };
  /// Visitor receives a record; key and value are valid during the call. The key may hold any bytes.
  using Visitor = std::function<void(Origin origin, std::string_view key, std::string_view value)>;

  /// RecoveryReader opens a file. If its header is damaged, it tries to guess the header from the pages. Throws a
  /// Failure if the file cannot be opened or is not a regular file.
  explicit RecoveryReader(const std::string &path);

  /// each visits the records in buckets, then those on all other pages. It may visit a record several times. Parts that
  /// cannot be read count as zeros.
  void each(const Visitor &visit);

  /// header_is_sound returns true if the file's own header is used; has_header if that or a guessed one is. Without a
  /// header, records longer than a page are not found.
  bool header_is_sound() const { return is_sound_; }
  bool has_header() const { return header_.has_value(); }
  /// record_count returns the number of records in a sound header, or 0 if the header is damaged, or may be wrong
  /// because the hash library has written the file.
  int64_t record_count() const;

  /// Range is a range of page numbers; both ends belong to it.
  struct Range {
    uint64_t first, last;
  };
  /// unread returns the pages that were not readable as pages of records. Valid after `each`, which may have found
  /// records on them in_bytes.
  std::vector<Range> unread() const;
  const File &file() const { return file_; }

 private:
  std::string read(int64_t offset, size_t count) const;
  std::string read_page(uint64_t page) const;
  std::optional<hashdb::Header> stored_header() const;
  std::optional<hashdb::Header> guessed_header() const;
  int score(const hashdb::Header &header) const;
  uint32_t guessed_shift() const;
  void walk(const Visitor &visit);
  void mark_free();
  void scan(const Visitor &visit);
  bool scan_page(const std::string &bytes, const Visitor &visit) const;
  void follow_long(const std::string &first, const Visitor &visit) const;
  static void scan_raw(const std::string &bytes, const Visitor &visit);

  File file_;
  int64_t size_;
  std::optional<hashdb::Header> header_;
  bool is_sound_ = false;
  uint32_t page_shift_ = 0;
  std::vector<bool> done_;    // by page: `each` need not scan it any more
  std::vector<bool> unread_;  // by page
};

}  // namespace rdm::catalog

#endif
