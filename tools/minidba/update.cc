#include "tools/minidba/update.h"

#include <algorithm>
#include <ostream>

#include "qxapi/ascii.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

std::optional<HashTable> open_existing(const std::string &path) {
  if (!status_of(path)) return std::nullopt;
  return HashTable(path);
}

bool is_header(const SoifStream::Item &item) {
  return item.number == 1 && item.object && ascii::iequals(item.object->template_name, "RDMHEADER");
}

}  // namespace

Update::Update(std::string database, time_t now)
    : database_(std::move(database)),
      now_(now),
      old_(open_existing(database_)),
      urls_(database_ + ".url", old_ ? &*old_ : nullptr),
      records_(database_),
      next_number_(urls_.next_number()) {}

void Update::take(SoifStream::Item item, std::ostream &errors) {
  if (is_header(item)) return;
  if (item.object && std::string_view(item.object->url) == "-") item.reason = "no URL";
  if (item.reason.empty()) {
    accept(item.object.get());
    return;
  }
  ++summary_.rejected;
  errors << "minidba: object " << item.number << " at byte " << item.offset << " rejected: " << item.reason << '\n';
}

void Update::accept(SOIF *object) {
  const std::string url = object->url;
  const auto pending = new_urls_.find(url);
  const std::optional<uint32_t> number =
      pending != new_urls_.end() ? std::optional(pending->second) : urls_.number_of(url);
  const std::string text = content(object);
  if (number) {
    const std::optional<std::string> record = current(*number);
    const soif_ptr known = record ? parse(*record) : nullptr;
    if (known && content(known.get()) == text) {
      ++summary_.unchanged;
      return;
    }
  }
  ++(number ? summary_.changed : summary_.added);
  stamp(object, now_);
  const bool is_new = !number || pending != new_urls_.end();
  if (!number && next_number_ == 0) throw Failure("no number is left in " + database_);
  store(url, number ? *number : next_number_++, is_new, print(object));
}

/// current returns the record of a number as this stream has left it so far.
std::optional<std::string> Update::current(uint32_t number) const {
  const auto change = changes_.find(number);
  if (change != changes_.end()) return records_.read(change->second.record);
  return old_ ? old_->get(database_key(number)) : std::nullopt;
}

void Update::store(const std::string &url, uint32_t number, bool is_new, const std::string &record) {
  if (is_new) new_urls_.insert_or_assign(url, number);
  changes_.insert_or_assign(number, Change{number, records_.append(record), is_new});
}

/// each_record visits every record of the next snapshot: what is kept of the old one, then the changes.
void Update::each_record(const HashTable::Visit &visit) const {
  if (old_)
    old_->each([&](std::string_view key, std::string_view value) {
      const auto number = number_of(key);
      if (!number || changes_.find(*number) == changes_.end()) visit(key, value);
    });
  for (const auto &[number, change] : changes_) visit(database_key(number), records_.read(change.record));
}

void Update::commit() {
  if (changes_.empty() && old_) return;
  Shape shape;
  each_record([&](std::string_view key, std::string_view value) {
    shape.add(static_cast<int64_t>(key.size()), static_cast<int64_t>(value.size()));
  });
  Snapshot database(database_);
  write_hash_table(database.path(), shape, [this](const HashTable::Visit &visit) { each_record(visit); });
  database.sync();
  Snapshot urls(database_ + ".url");
  urls_.write(urls, database.path(), next_number_, [this](const UrlMap::Visit &visit) {
    for (const auto &[url, number] : new_urls_) visit(url, number);
  });
  // The database first: a map that is behind is noticed and made anew, one that is ahead would be too.
  database.commit();
  urls.commit();
}

void update(const std::string &database, int input, std::ostream &out, std::ostream &errors) {
  const Lock lock(database);
  Update update(database, std::time(nullptr));
  SoifStream stream(input, database);
  while (std::optional<SoifStream::Item> item = stream.next()) update.take(std::move(*item), errors);
  update.commit();
  const Summary &summary = update.summary();
  errors << "minidba: " << summary.added << " new, " << summary.changed << " changed, " << summary.unchanged
         << " unchanged, " << summary.rejected << " rejected\n";
  out << summary.accepted() << '\n';
}

}  // namespace minidba
