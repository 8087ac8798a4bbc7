// SPDX-License-Identifier: MIT
#include "tools/minidba/output/faults.h"

#include <ostream>

#include "qxapi/escaped.h"

namespace rdm::minidba {

void Faults::add(const std::string &text) {
  if (++count_ > named) return;
  errors_ << "minidba: " << escaped(text) << '\n';
  texts_.push_back(text);
}

void Faults::close() {
  if (is_full()) errors_ << "minidba: and " << count_ - named << " more\n";
}

}  // namespace rdm::minidba
