// SPDX-License-Identifier: MIT
#include "catalog/stream/stream_check.h"

#include <string>

#include "catalog/os/error.h"
#include "qxapi/counted.h"

namespace rdm::catalog {
namespace {

Failure wrong_count(int64_t announced, int64_t found) {
  return Failure("the header announces " + counted(announced, "description") + " and " +
                 counted(found, "follows", "follow"));
}

}  // namespace

void StreamCheck::take(const SoifStream::Item &item) {
  if (item.is_cut && !cut_) cut_ = CutObject{item.number, item.offset};
  if (is_header(item))
    header_ = read_header(*item.object);
  else
    ++objects_;
}

void StreamCheck::require_end() const {
  if (!has_export_header()) return;
  if (objects_ < *header_.descriptions) throw wrong_count(*header_.descriptions, objects_);
  if (cut_)
    throw Failure("the input ends within object " + std::to_string(cut_->number) + " at byte " +
                  std::to_string(cut_->offset));
}

void StreamCheck::require_whole() const {
  require_end();
  if (has_export_header() && objects_ != *header_.descriptions) throw wrong_count(*header_.descriptions, objects_);
}

}  // namespace rdm::catalog
