#include "tools/minidba/faults.h"

#include <ostream>

namespace minidba {

void Faults::add(const std::string &text) {
  if (++count_ > named) return;
  errors_ << "minidba: " << text << '\n';
  texts_.push_back(text);
}

void Faults::close() {
  if (is_full()) errors_ << "minidba: and " << count_ - named << " more\n";
}

}  // namespace minidba
