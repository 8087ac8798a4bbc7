#include "tools/minidba/new_file.h"

#include "tools/minidba/failure.h"

namespace minidba {
namespace {

const std::string &checked(const std::string &target) {
  const auto status = status_of(target);
  if (status && !S_ISREG(status->st_mode)) throw Failure("not a regular file: " + target);
  return target;
}

}  // namespace

NewFile::NewFile(const std::string &target)
    : snapshot_(checked(target)), file_(snapshot_.path(), std::ios::binary | std::ios::trunc) {
  if (!file_) throw system_failure("cannot create " + snapshot_.path());
}

void NewFile::write(std::string_view bytes) {
  if (!file_.write(bytes.data(), static_cast<std::streamsize>(bytes.size())))
    throw system_failure("cannot write " + snapshot_.path());
}

void NewFile::finish() {
  file_.close();
  if (!file_) throw system_failure("cannot write " + snapshot_.path());
  snapshot_.sync();
}

}  // namespace minidba
