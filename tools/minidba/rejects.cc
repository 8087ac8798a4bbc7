#include "tools/minidba/rejects.h"

#include <ostream>

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
  if (file_) file_->commit();
}

}  // namespace minidba
