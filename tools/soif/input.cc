// SPDX-License-Identifier: MIT
#include "tools/soif/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ostream>

#include "catalog/os/error.h"
#include "qxapi/temporary_directory.h"
#include "tools/common/progress.h"

namespace rdm::soif_tool {

Input::Input(const std::string &name, const Options &options, const Console &console)
    : standard_(console.input), name_(name == "-" ? "the input" : name) {
  if (name != "-") {
    file_ = catalog::open_file(name, O_RDONLY | O_NOCTTY);
    if (!file_) throw catalog::system_failure("cannot read " + name_);
  }
  if (!options.quiet && ::isatty(descriptor()) != 0)
    console.errors << "soif: " << options.verb << " reads from the terminal; Ctrl-D at the start of a line ends it\n";
}

int64_t Input::size() const {
  struct stat status;
  return ::fstat(descriptor(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

size_t Input::read(char *bytes, size_t size) const {
  const ssize_t got = uninterrupted([&] { return ::read(descriptor(), bytes, size); });
  if (got < 0) throw catalog::system_failure("cannot read " + name_);
  return static_cast<size_t>(got);
}

std::vector<std::string> inputs_of(const Options &options) {
  return options.inputs.empty() ? std::vector<std::string>{"-"} : options.inputs;
}

catalog::SoifStream open_soif(const Input &input, const Console &console) {
  tools::Progress progress(console.errors, console.progress, "soif: reading the input");
  const std::string beside = std::string(named_temporary_directory()) + "/soif";
  return {input.descriptor(), beside, [&](int64_t bytes) { progress.advance(0, bytes); }, input.name()};
}

}  // namespace rdm::soif_tool
