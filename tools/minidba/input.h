// SPDX-License-Identifier: MIT
/// The inputs of a verb: files, or standard input.
#ifndef MINIDBA_INPUT_H
#define MINIDBA_INPUT_H

#include <functional>
#include <string>
#include <vector>

#include "catalog/os/file.h"
#include "catalog/stream/soif_stream.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Input is open for reading. When it is a terminal, its user is told that the program waits for typed lines.
class Input {
 public:
  /// "-" names standard input. Throws a Failure when the file cannot be opened.
  Input(const std::string &name, const Options &options, const Console &console);

  int descriptor() const { return file_ ? file_.get() : console_.input; }
  /// name returns how messages call the input: its file, or "the input".
  const std::string &name() const { return name_; }

 private:
  const Console &console_;
  HostFileGuard file_;
  std::string name_;
};

/// each_word visits the words after a verb; for "-" it visits the lines of standard input. A CR at the end of a line,
/// as some editors and mailers put it there, is dropped, and so are empty lines.
void each_word(const Options &options, const Console &console, const std::function<void(const std::string &)> &visit);

/// inputs_of returns the names of the streams to read; "-" is standard input.
std::vector<std::string> inputs_of(const Options &options);

/// open_stream opens an input by its name and shows progress while it is copied. Throws a Failure that names it.
SoifStream open_stream(const std::string &input, const Options &options, const Console &console);

}  // namespace rdm::minidba

#endif
