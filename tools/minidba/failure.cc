#include "tools/minidba/failure.h"

#include <cerrno>
#include <system_error>

namespace minidba {

Failure system_failure(const std::string &what) {
  return Failure(what + ": " + std::generic_category().message(errno));
}

}  // namespace minidba
