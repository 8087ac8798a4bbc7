#include "tools/minidba/failure.h"

#include <cerrno>
#include <system_error>

namespace minidba {

SystemFailure system_failure(const std::string &what) {
  return SystemFailure(what + ": " + std::generic_category().message(errno));
}

}  // namespace minidba
