// SPDX-License-Identifier: MIT
/// The inputs of a verb: files or standard input.
#ifndef SOIF_INPUT_H
#define SOIF_INPUT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "catalog/os/file.h"
#include "catalog/stream/soif_stream.h"
#include "tools/soif/options.h"

namespace rdm::soif_tool {

/// Input is an open file or standard input.
class Input {
 public:
  /// Input opens a file; "-" is standard input. If it is a terminal, a note goes to standard error unless the options
  /// say quiet. Throws a SystemFailure if the file cannot be opened.
  Input(const std::string &name, const Options &options, const Console &console);

  int descriptor() const { return file_ ? file_.get() : standard_; }
  /// name returns the name for messages: the file, or "the input".
  const std::string &name() const { return name_; }
  /// size returns the size in bytes, 0 if it is not known.
  int64_t size() const;

  /// read reads up to `size` bytes and returns how many it has read, 0 at the end. Throws a SystemFailure.
  size_t read(char *bytes, size_t size) const;

 private:
  int standard_;
  std::string name_;
  HostFileGuard file_;
};

/// inputs_of returns the names of the inputs, "-" alone if the command line names none.
std::vector<std::string> inputs_of(const Options &options);

/// open_soif opens the objects of an input. One that cannot be read twice is copied to a temporary file first.
catalog::SoifStream open_soif(const Input &input, const Console &console);

}  // namespace rdm::soif_tool

#endif
