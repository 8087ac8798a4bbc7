// SPDX-License-Identifier: MIT
#include "tools/minidba/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <ostream>
#include <utility>

#include "catalog/os/error.h"
#include "tools/minidba/output/progress.h"

namespace rdm::minidba {
namespace {

using Visitor = std::function<void(const std::string &)>;

void visit_line(std::string line, const Visitor &visit) {
  if (line.ends_with('\r')) line.pop_back();
  if (!line.empty()) visit(line);
}

void each_line(const Input &input, const Visitor &visit) {
  std::string block(1 << 16, '\0'), line;
  for (;;) {
    const ssize_t got = uninterrupted([&] { return ::read(input.descriptor(), block.data(), block.size()); });
    if (got < 0) throw system_failure("cannot read " + input.name());
    if (got == 0) return visit_line(line, visit);
    for (const char c : std::string_view(block).substr(0, static_cast<size_t>(got)))
      c == '\n' ? visit_line(std::exchange(line, {}), visit) : line.push_back(c);
  }
}

}  // namespace

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

void each_word(const Options &options, const Console &console, const Visitor &visit) {
  for (const std::string &word : options.arguments)
    word == "-" ? each_line(Input("-", options, console), visit) : visit(word);
}

std::vector<std::string> inputs_of(const Options &options) {
  return options.inputs.empty() ? std::vector<std::string>{"-"} : options.inputs;
}

SoifStream open_stream(const std::string &input, const Options &options, const Console &console) {
  const Input opened(input, options, console);
  Progress progress(console, "reading the input");
  return {opened.descriptor(), options.database, [&](int64_t bytes) { progress.advance(0, bytes); }, opened.name()};
}

}  // namespace rdm::minidba
