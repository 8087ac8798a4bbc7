#include "tools/minidba/update.h"

#include <ostream>

#include "qxapi/ascii.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

bool is_header(const SoifStream::Item &item) {
  return item.number == 1 && item.object && ascii::iequals(item.object->template_name, "RDMHEADER");
}

}  // namespace

Update::Update(const Catalog &catalog, time_t now)
    : catalog_(catalog), now_(now), changes_(catalog), next_number_(catalog.next_number()) {}

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
  const std::optional<uint32_t> number = changes_.number_of(url);
  const std::string text = content(object);
  if (number) {
    const std::optional<std::string> record = changes_.get(*number);
    const soif_ptr known = record ? parse(*record) : nullptr;
    if (known && content(known.get()) == text) {
      ++summary_.unchanged;
      return;
    }
  }
  ++(number ? summary_.changed : summary_.added);
  stamp(object, now_);
  changes_.put(number ? *number : new_number(), url, print(object));
}

uint32_t Update::new_number() {
  if (next_number_ == 0) throw Failure("no number is left in " + catalog_.path());
  return next_number_++;
}

void update(const std::string &database, int input, std::ostream &out, std::ostream &errors) {
  const Lock lock(database);
  Catalog catalog(database, Absent::empty);
  catalog.renew_url_map(lock);
  Update update(catalog, std::time(nullptr));
  SoifStream stream(input, database);
  while (std::optional<SoifStream::Item> item = stream.next()) update.take(std::move(*item), errors);
  commit(lock, catalog, update.changes(), update.next_number());
  const Summary &summary = update.summary();
  errors << "minidba: " << summary.added << " new, " << summary.changed << " changed, " << summary.unchanged
         << " unchanged, " << summary.rejected << " rejected\n";
  out << summary.accepted() << '\n';
}

}  // namespace minidba
