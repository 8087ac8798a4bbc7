/// Hash files as minidba reads and writes them.
#ifndef MINIDBA_HASH_TABLE_H
#define MINIDBA_HASH_TABLE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "dba/guard.h"

namespace minidba {

/// HashTable is an existing file, open for reading.
class HashTable {
 public:
  /// Throws a Failure that names the file when it is not a sound hash file.
  explicit HashTable(std::string path);

  std::optional<std::string> get(std::string_view key) const;

  using Visit = std::function<void(std::string_view key, std::string_view value)>;
  /// each visits every record, in the file's order. Throws a Failure at the first damaged one.
  void each(const Visit &visit) const;

  const std::string &path() const { return path_; }

 private:
  std::string path_;
  database_ptr database_;
};

/// Shape is what a hash file is laid out for.
struct Shape {
  int64_t records = 0;
  int64_t bytes = 0;    // of all keys and values
  int64_t longest = 0;  // bytes of the longest key and value together

  void add(int64_t key_size, int64_t value_size);
};

/// write_hash_table writes a new hash file at `path`, whose records `produce` hands over, one call of its argument
/// each. `produce` is called again to compare what was written: the file is read back, byte for byte, before this
/// returns. Throws a Failure when the records cannot be stored or are not read back.
using Produce = std::function<void(const HashTable::Visit &)>;
void write_hash_table(const std::string &path, const Shape &shape, const Produce &produce);

}  // namespace minidba

#endif
