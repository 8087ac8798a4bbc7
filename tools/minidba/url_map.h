/// Which description has which number: the hash file DATABASE.url.
#ifndef MINIDBA_URL_MAP_H
#define MINIDBA_URL_MAP_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/minidba/files.h"
#include "tools/minidba/hash_table.h"

namespace minidba {

/// UrlMap answers for one snapshot of a database, which it is known to belong to by the file's identity (device, inode,
/// size, time of change). A map that is missing, damaged or of another snapshot is made anew from the database.
class UrlMap {
 public:
  /// `database` null: the catalog is yet to be made, and the map is empty.
  UrlMap(std::string path, const HashTable *database);

  std::optional<uint32_t> number_of(std::string_view url) const;
  /// next_number returns the smallest number that no description of the catalog has had.
  uint32_t next_number() const { return next_number_; }

  using Visit = std::function<void(std::string_view url, uint32_t number)>;
  /// write writes the map of a new snapshot: the URLs of this one and those that `additions` hands over.
  void write(Snapshot &snapshot, const std::string &database, uint32_t next_number,
             const std::function<void(const Visit &)> &additions) const;

 private:
  bool open(const std::string &database);
  void rebuild(const HashTable &database);

  std::string path_;
  std::optional<HashTable> table_;
  uint32_t next_number_ = 1;
};

}  // namespace minidba

#endif
