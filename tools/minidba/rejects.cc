#include "tools/minidba/rejects.h"

#include <ostream>

#include "tools/minidba/failure.h"

namespace minidba {

Rejects::Rejects(const Options &options, const Console &console) : console_(console) {
  if (!options.rejects.empty() && !options.dry_run) file_.emplace(options.rejects);
}

void Rejects::add(SoifStream &stream, const SoifStream::Item &item, const std::string &reason, Progress &progress) {
  ++count_;
  progress.clear();
  console_.errors << "minidba: object " << item.number << " at byte " << item.offset << " rejected: " << reason << '\n';
  if (file_) file_->write(stream.bytes_of(item));
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

}  // namespace minidba
