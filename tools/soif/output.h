// SPDX-License-Identifier: MIT
/// The output of a verb: standard output, or a file that is replaced when it is whole.
#ifndef SOIF_OUTPUT_H
#define SOIF_OUTPUT_H

#include <optional>
#include <string_view>

#include "catalog/os/atomic_writer.h"
#include "tools/soif/options.h"

namespace rdm::soif_tool {

/// Output writes to the file that the options name, or to standard output. The file may also be the input.
class Output {
 public:
  /// Output throws a Failure if the file cannot be created. The console must outlive it.
  Output(const Options &options, const Console &console);

  void write(std::string_view bytes);
  /// finish puts the new file into its place. Without it, the old file stays.
  void finish();

 private:
  const Console &console_;
  std::optional<catalog::AtomicWriter> file_;
};

}  // namespace rdm::soif_tool

#endif
