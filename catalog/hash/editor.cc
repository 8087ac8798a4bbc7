// SPDX-License-Identifier: MIT
#include "catalog/hash/editor.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "catalog/hash/page_allocator.h"
#include "catalog/hash/page_map.h"
#include "catalog/os/error.h"

namespace rdm::catalog {
namespace {

using hashdb::Header;

/// Contents are the records of one bucket, in the order in which they are written.
using Contents = std::vector<std::pair<std::string, std::string>>;

Failure not_read_back(const std::string &path) {
  return Failure("cannot verify " + path + ": it does not contain what was written");
}

class Editor {
 public:
  Editor(const HashTable &old, const File &file, const RecordLoader &load)
      : file_(file), output_(file), load_(load), reader_(old), header_(old.header()), pages_(header_, file) {}

  void edit(uint32_t bucket, const RecordRef *first, const RecordRef *last);
  Header finish();
  /// contents returns the records of a bucket after the changes.
  Contents contents(uint32_t bucket, const RecordRef *first, const RecordRef *last);

 private:
  const File &file_;
  RunWriter output_;
  const RecordLoader &load_;
  BucketReader reader_;
  uint32_t old_count_ = 0;  // records in the old file of the last bucket that was read
  Header header_;
  PageAllocator pages_;
};

bool is_among(std::string_view key, const Contents &records) {
  return std::any_of(records.begin(), records.end(), [key](const auto &record) { return record.first == key; });
}

Contents Editor::contents(uint32_t bucket, const RecordRef *first, const RecordRef *last) {
  Contents batch, result;
  std::vector<bool> erased;
  for (const RecordRef *ref = first; ref != last; ++ref) {
    const Record record = load_(*ref);
    batch.emplace_back(record.key, ref->value_size == erased_value ? std::string_view() : record.value);
    erased.push_back(ref->value_size == erased_value);
  }
  old_count_ = 0;
  for (reader_.start(bucket); reader_.next(); ++old_count_)
    if (!is_among(reader_.key(), batch)) result.emplace_back(reader_.key(), reader_.value());
  for (size_t i = 0; i < batch.size(); ++i)
    if (!erased[i]) result.push_back(std::move(batch[i]));
  std::stable_partition(result.begin(), result.end(), [this](const auto &record) {
    return !is_long(header_, static_cast<uint32_t>(record.first.size()), static_cast<uint32_t>(record.second.size()));
  });
  return result;
}

void Editor::edit(uint32_t bucket, const RecordRef *first, const RecordRef *last) {
  const Contents records = contents(bucket, first, last);
  for (const uint16_t address : reader_.overflow()) pages_.release(address);
  BucketWriter writer(header_, output_, [this] { return pages_.take(); });
  writer.start(bucket);
  for (const auto &[key, value] : records) writer.add({key, value});
  writer.finish();
  header_.records += static_cast<uint32_t>(records.size()) - old_count_;
}

Header Editor::finish() {
  output_.flush();
  pages_.write();
  file_.resize(static_cast<int64_t>(pages_of(header_) << header_.page_shift));
  write_header(file_, header_);
  return header_;
}

/// suits returns true if the layout of a file allows to edit these records.
bool suits(const HashTable &old, const std::vector<RecordRef> &refs) {
  const Header &header = old.header();
  if (!old.trailer() || header.bitmaps[0] == 0 || refs.size() > header.max_bucket / 2) return false;
  return std::all_of(refs.begin(), refs.end(), [&](const RecordRef &ref) { return fits_key(header, ref.key_size); });
}

/// has_outgrown returns true if a file has twice as many records as it was laid out for, or many more overflow pages.
bool has_outgrown(const Header &header, const Trailer &planned) {
  const uint64_t buckets = uint64_t{header.max_bucket} + 1;
  return header.records > buckets * header.fill_factor ||
         header.spares[header.overflow_point] > planned.planned_pages + buckets / 2 + 64;
}

/// check reads an edited file and returns the number of its records. Returns std::nullopt if a page has two uses:
/// damaged bitmaps marked a used page as free, and its records are overwritten.
std::optional<uint32_t> check(const std::string &path, Editor &editor, const std::vector<RecordRef> &refs,
                              const HashTable::Visitor &visit) {
  const HashTable table(path);
  BucketReader reader(table);
  for_each_bucket(table.header(), refs, [&](uint32_t bucket, const RecordRef *first, const RecordRef *last) {
    reader.start(bucket);
    for (const auto &[key, value] : editor.contents(bucket, first, last))
      if (!reader.next() || reader.key() != key || reader.value() != value) throw not_read_back(path);
    if (reader.next()) throw not_read_back(path);
  });
  // PageMap reads the whole file, and throws if copied records are lost.
  const PageMap use(table, visit);
  return use.is_shared() ? std::nullopt : std::optional(use.records());
}

bool edit(const HashTable &old, const File &file, std::vector<RecordRef> &refs, const RecordLoader &load,
          Trailer trailer, const HashTable::Visitor &visit) {
  copy_contents(old.file(), file);
  Editor editor(old, file, load);
  for_each_bucket(old.header(), refs, [&](uint32_t bucket, const RecordRef *first, const RecordRef *last) {
    editor.edit(bucket, first, last);
  });
  Header header = editor.finish();
  trailer.planned_pages = old.trailer()->planned_pages;
  if (has_outgrown(header, trailer)) return false;
  trailer.write(file);
  try {
    const std::optional<uint32_t> count = check(file.name(), editor, refs, visit);
    if (count && *count != header.records) {
      header.records = *count;
      write_header(file, header);
    }
    return count.has_value();
  } catch (const Failure &) {
    // The caller then writes the whole file. If that fails too, the old file is damaged.
    return false;
  }
}

}  // namespace

bool edit_hash_file(const HashTable &old, const File &file, std::vector<RecordRef> &refs, const RecordLoader &load,
                    Trailer trailer, const HashTable::Visitor &check) {
  if (!suits(old, refs)) return false;
  std::sort(refs.begin(), refs.end(), [&](const RecordRef &a, const RecordRef &b) {
    return std::pair(bucket_of(old.header(), a.hash), a.offset) < std::pair(bucket_of(old.header(), b.hash), b.offset);
  });
  try {
    if (edit(old, file, refs, load, trailer, check)) return true;
  } catch (const NoPage &) {
    // The caller then writes a file with a layout for these records.
  }
  file.resize(0);
  return false;
}

}  // namespace rdm::catalog
