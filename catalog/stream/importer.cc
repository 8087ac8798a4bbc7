// SPDX-License-Identifier: MIT
#include "catalog/stream/importer.h"

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/stream/dump_format.h"

namespace rdm::catalog {

Importer::Importer(WriteTransaction &transaction) : transaction_(transaction), batch_(transaction.catalog()) {}

void Importer::begin() {
  if (has_begun_) return;
  transaction_.begin();
  next_number_ = transaction_.catalog().next_number();
  has_begun_ = true;
}

std::string Importer::take(SoifStream::Item &item) {
  if (is_header(item)) return {};
  std::string reason = refusal(item);
  if (reason.empty())
    accept(*item.object);
  else
    ++summary_.rejected;
  return reason;
}

void Importer::accept(ObjectView &object) {
  begin();
  const std::string_view url = object.url();
  const std::optional<uint32_t> number = batch_.number_of(url);
  drop_number(object);
  const Undated undated = print_undated(object);
  const std::optional<std::string> known = number ? batch_.get(*number) : std::nullopt;
  if (known && is_version_of(*known, undated)) {
    ++summary_.unchanged;
    return taken_.push_back(*number);
  }
  ++(number ? summary_.changed : summary_.added);
  taken_.push_back(number ? *number : new_number());
  batch_.put_undated(taken_.back(), url, undated);
}

uint32_t Importer::new_number() {
  if (next_number_ == 0) throw Failure("no number is left in " + transaction_.catalog().path());
  return next_number_++;
}

}  // namespace rdm::catalog
