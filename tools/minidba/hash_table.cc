#include "tools/minidba/hash_table.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "tools/minidba/failure.h"
#include "tools/minidba/files.h"
#include "tools/minidba/hash_writer.h"

namespace minidba {
namespace {

DBT dbt(std::string_view bytes) {
  DBT item;
  item.data = const_cast<char *>(bytes.data());
  item.size = bytes.size();
  return item;
}

std::string_view view(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

/// Spool keeps the records in a file without a name, so that they can be written in the order of their buckets.
class Spool {
 public:
  Spool(const std::string &path, const Produce &produce) : file_(path) {
    produce([this](std::string_view key, std::string_view value) {
      const int64_t place = file_.append(std::string(key) + std::string(value)).offset;
      items_.push_back({hash_file::default_hash(key.data(), key.size()), static_cast<uint32_t>(key.size()),
                        static_cast<uint32_t>(value.size()), place});
    });
  }
  std::vector<Item> &items() { return items_; }

  Record fetch(const Item &item) {
    record_ = file_.read({item.place, int64_t{item.key_size} + item.value_size});
    const std::string_view text = record_;
    return {text.substr(0, item.key_size), text.substr(item.key_size)};
  }

 private:
  ScratchFile file_;
  std::vector<Item> items_;
  std::string record_;
};

/// reads_back returns whether the file holds exactly the records that were written.
bool reads_back(const std::string &path, const Shape &shape, const Produce &produce) {
  try {
    const HashTable table(path);
    bool same = true;
    produce([&](std::string_view key, std::string_view value) { same = same && table.get(key) == value; });
    int64_t records = 0;
    table.each([&](std::string_view, std::string_view) { ++records; });
    return same && records == shape.records;
  } catch (const Failure &) {
    return false;
  }
}

}  // namespace

HashTable::HashTable(std::string path) : path_(std::move(path)), database_(dba_open(path_.c_str(), "r")) {
  if (!database_)
    throw errno == EINVAL ? Failure("not a sound hash database: " + path_) : system_failure("cannot open " + path_);
}

std::optional<std::string> HashTable::get(std::string_view key) const {
  const DBT name = dbt(key);
  DBT value{};
  const int result = dba_get(database_.get(), &name, &value);
  if (result < 0) throw Failure("damaged record " + std::string(key) + " in " + path_);
  if (result != 0) return std::nullopt;
  return std::string(view(value));
}

void HashTable::each(const Visit &visit) const {
  DBT key{}, value{};
  int result = dba_first(database_.get(), &key, &value);
  for (; result == 0; result = dba_next(database_.get(), &key, &value)) visit(view(key), view(value));
  if (result < 0) throw Failure("damaged page in " + path_);
}

void Shape::add(int64_t key_size, int64_t value_size) {
  ++records;
  bytes += key_size + value_size;
  longest = std::max(longest, key_size + value_size);
}

void write_hash_table(const std::string &path, const Shape &shape, const Produce &produce) {
  ::unlink(path.c_str());
  Spool spool(path, produce);
  const file_guard file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!file) throw system_failure("cannot create " + path);
  write_hash_file(file.get(), spool.items(), [&](const Item &item) { return spool.fetch(item); });
  if (!reads_back(path, shape, produce)) throw Failure("does not hold what was written to it: " + path);
}

}  // namespace minidba
