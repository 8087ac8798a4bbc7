#include "tools/minidba/layout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "dba/hash_file.h"
#include "qxapi/guard.h"
#include "tools/minidba/failure.h"

namespace minidba {

Layout layout_of(const std::string &path) {
  const file_guard file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  unsigned char bytes[hash_file::header_size];
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0 || ::pread(file.get(), bytes, sizeof bytes, 0) != sizeof bytes)
    throw system_failure("cannot read " + path);
  const hash_file::Header header = hash_file::decode(bytes);
  const uint32_t overflow_pages = header.spares[std::min(header.overflow_point, hash_file::doublings - 1)];
  return {status.st_size,
          header.page_size,
          status.st_size / header.page_size,
          int64_t{header.max_bucket} + 1,
          overflow_pages,
          static_cast<int32_t>(header.records)};
}

}  // namespace minidba
