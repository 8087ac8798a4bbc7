/// An input of a verb: a file, or standard input.
#ifndef MINIDBA_INPUT_H
#define MINIDBA_INPUT_H

#include <string>

#include "tools/minidba/files.h"
#include "tools/minidba/options.h"

namespace minidba {

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
  file_guard file_;
  std::string name_;
};

}  // namespace minidba

#endif
