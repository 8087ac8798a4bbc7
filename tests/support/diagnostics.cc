// SPDX-License-Identifier: MIT
#include "support/diagnostics.h"

#include <regex>

#include <libcs/log.h>

namespace rdm::support {

Diagnostics::Diagnostics(int level) : path_(directory_.path("diagnostics.log")) { cslog_init(level, path_.c_str()); }

Diagnostics::~Diagnostics() {
  cslog_terminate();
  cslog_set_level(0);
}

std::string Diagnostics::raw() const { return read_file(path_); }

std::string Diagnostics::text() const {
  static const std::regex line_start(R"(\[[^\]\n]*\] +\d+@\d+:(\t)? )");
  return std::regex_replace(raw(), line_start, "");
}

}  // namespace rdm::support
