#include "catalog/stream/importer.h"

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"

namespace catalog {

Delivery::Delivery(WriteTransaction &writing) : writing_(writing), changes_(writing.catalog()) {}

void Delivery::begin() {
  if (has_begun_) return;
  writing_.begin();
  next_number_ = writing_.catalog().next_number();
  has_begun_ = true;
}

std::string Delivery::take(const SoifStream::Item &item) {
  if (is_header(item)) return {};
  std::string reason = refusal(item);
  if (reason.empty())
    accept(item.object.get());
  else
    ++summary_.rejected;
  return reason;
}

void Delivery::accept(SOIF *object) {
  begin();
  const std::string url = object->url;
  const std::optional<uint32_t> number = changes_.number_of(url);
  drop_number(object);
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
  changes_.put_undated(number ? *number : new_number(), url, print_undated(object, text));
}

uint32_t Delivery::new_number() {
  if (next_number_ == 0) throw Failure("no number is left in " + writing_.catalog().path());
  return next_number_++;
}

}  // namespace catalog
