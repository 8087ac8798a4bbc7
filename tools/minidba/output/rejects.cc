// SPDX-License-Identifier: MIT
#include "tools/minidba/output/rejects.h"

#include <ostream>

#include "catalog/os/error.h"
#include "tools/common/rejection.h"

namespace rdm::minidba {
Rejects::Rejects(const Options &options, const Console &console) : console_(console) {
  if (!options.rejects.empty() && !options.dry_run) file_.emplace(options.rejects);
  if (options.json) reasons_.emplace(options.database);
}

void Rejects::add(SoifStream &stream, const SoifStream::Item &item, const std::string &reason, Progress &progress) {
  ++count_;
  progress.clear();
  const tools::Rejection rejection = tools::rejection_of(stream, item, reason);
  console_.errors << "minidba: " << line_of(rejection) << '\n';
  if (reasons_) {
    const std::string text = json_of(rejection);
    reasons_size_ += static_cast<int64_t>(text.size()) + 1;
    reasons_->append((count_ == 1 ? "" : ",") + text);
    reasons_size_ -= count_ == 1 ? 1 : 0;
  }
  if (file_) file_->write(stream.bytes_of(item));
}

std::string Rejects::reasons() const {
  std::string text(static_cast<size_t>(reasons_size_), '\0');
  if (reasons_) reasons_->read(0, text.data(), text.size());
  return "[" + text + "]";
}

void Rejects::finish() {
  if (file_) file_->finish();
}

void Rejects::commit() {
  if (!file_) return;
  try {
    file_->commit();
  } catch (const Failure &failure) {
    throw Failure(std::string("the descriptions were taken in, but ") + failure.what());
  }
}

}  // namespace rdm::minidba
