// SPDX-License-Identifier: MIT
/// Reading what is left of a database whose structure cannot be trusted.
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

/// RecoveryReader is a hash file, or what was one. It is only read.
class RecoveryReader {
 public:
  /// How far a record that was found can be trusted.
  enum Origin {
    in_bytes,   // its text and key lie side by side on a damaged page
    on_page,    // it lies on a page that nothing leads to: it may have been replaced or removed
    in_bucket,  // its key leads to it
  };
  /// Visit gets a record that was found. The key may be of any bytes.
  using Visitor = std::function<void(Origin origin, std::string_view key, std::string_view value)>;

  /// Throws a Failure when the file cannot be read at all or is no regular file.
  explicit RecoveryReader(const std::string &path);

  /// each finds records: those that the structure leads to, then those on pages that it does not lead to. A record may
  /// be found several times.
  void each(const Visitor &visit);

  /// header_is_sound returns true if the header is used as it stands; otherwise has_header returns true if it could be
  /// made out from the pages. Without a header, records longer than a page are not found.
  bool header_is_sound() const { return is_sound_; }
  bool has_header() const { return header_.has_value(); }
  /// counted returns how many records a sound header says there are, 0 when nothing reliable says it.
  int64_t record_count() const;

  /// Range is a run of pages.
  struct Range {
    uint64_t first, last;
  };
  /// unread returns the pages that could not be read as such, once each has returned. On a damaged page some records
  /// may have been found nevertheless.
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
  uint32_t shift_ = 0;      // of a page
  std::vector<bool> done_;  // pages that need not be looked at any more
  std::vector<bool> bad_;
};

}  // namespace rdm::catalog

#endif
