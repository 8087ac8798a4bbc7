// SPDX-License-Identifier: MIT
/// Writes metrics in the text format of Prometheus, version 0.0.4.
#ifndef HOSTS_RDMD_FRONT_EXPOSITION_H
#define HOSTS_RDMD_FRONT_EXPOSITION_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace rdm::rdmd {

class Exposition {
 public:
  using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

  /// family begins a family of samples: a "counter", a "gauge" or a "histogram".
  void family(std::string_view name, std::string_view type, std::string_view help);
  /// sample adds a sample of the current family. `suffix` follows the family's name, such as "_bucket". The values of
  /// labels may be any text: quotes, backslashes and newlines are escaped.
  void sample(Labels labels, std::uint64_t value, std::string_view suffix = "");
  /// seconds adds a sample with a number of seconds, exact to the nanosecond.
  void seconds(Labels labels, std::int64_t nanoseconds, std::string_view suffix = "");

  const std::string &text() const { return text_; }

 private:
  void begin_sample(Labels labels, std::string_view suffix);

  std::string name_;
  std::string text_;
};

/// decimal_seconds returns a number of seconds without trailing zeros, such as "0.0025" or "10".
std::string decimal_seconds(std::int64_t nanoseconds);

}  // namespace rdm::rdmd

#endif
