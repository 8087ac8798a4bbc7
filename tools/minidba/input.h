// SPDX-License-Identifier: MIT
/// The inputs of a verb: files or standard input.
#ifndef MINIDBA_INPUT_H
#define MINIDBA_INPUT_H

#include <functional>
#include <string>
#include <vector>

#include "catalog/os/file.h"
#include "catalog/stream/soif_stream.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Input is an open file or standard input.
class Input {
 public:
  /// Input opens a file; "-" is standard input. If it is a terminal, it writes a note to standard error unless the
  /// options say quiet. The console must outlive it. Throws a SystemFailure if the file cannot be opened.
  Input(const std::string &name, const Options &options, const Console &console);

  /// descriptor returns the descriptor, which belongs to this object or to the console.
  int descriptor() const { return file_ ? file_.get() : console_.input; }
  /// name returns the name of the input for messages: its file, or "the input".
  const std::string &name() const { return name_; }

 private:
  const Console &console_;
  HostFileGuard file_;
  std::string name_;
};

/// each_word visits the arguments of a verb; in place of "-", the lines of standard input without empty ones. It drops
/// a CR at the end of a line.
void each_word(const Options &options, const Console &console, const std::function<void(const std::string &)> &visit);

/// inputs_of returns the names of the streams to read, "-" alone if the command line names none.
std::vector<std::string> inputs_of(const Options &options);

/// open_stream opens an input by name, and shows progress while the input is copied. Throws a SystemFailure that names
/// it.
SoifStream open_stream(const std::string &input, const Options &options, const Console &console);

}  // namespace rdm::minidba

#endif
