#include "tools/minidba/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <ostream>

#include "tools/minidba/failure.h"

namespace minidba {

Input::Input(const std::string &name, const Options &options, const Console &console)
    : console_(console), name_(name == "-" ? "the input" : name) {
  if (name != "-") {
    file_ = open_file(name, O_RDONLY | O_NOCTTY);
    if (!file_) throw system_failure("cannot read " + name_);
  }
  if (!options.quiet && ::isatty(descriptor()) != 0)
    console.errors << "minidba: " << options.verb
                   << " reads from the terminal; Ctrl-D at the start of a line ends it\n";
}

}  // namespace minidba
