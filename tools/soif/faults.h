// SPDX-License-Identifier: MIT
/// Reporting and keeping what was rejected.
#ifndef SOIF_FAULTS_H
#define SOIF_FAULTS_H

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "catalog/os/atomic_writer.h"
#include "tools/common/progress.h"
#include "tools/soif/options.h"
#include "tools/soif/taker.h"

namespace rdm::soif_tool {

/// Faults writes a line about each fault: "soif: FILE:LINE:COLUMN: reason", or a JSON object. If the options name a
/// file for rejects, it keeps the bytes there.
class Faults {
 public:
  /// Faults opens the file for rejects. Throws a Failure if it cannot. The console must outlive this object; `out` is
  /// one of its streams. Lines on standard output do not name the program.
  Faults(const Options &options, const Console &console, std::ostream &out);

  /// enter sets the name of the input that faults are in from now on.
  void enter(std::string input) { input_ = std::move(input); }
  /// add reports a fault, after clearing the progress line.
  void add(const Place &place, const std::string &reason, tools::Progress &progress);
  /// note writes a line like add, but it is no fault.
  void note(const Place &place, const std::string &words, tools::Progress &progress);
  /// keep_before and keep_after set what the file for rejects has before and after the bytes that are kept, if there
  /// are any. keep writes bytes to the file.
  void keep_before(std::string_view bytes) { before_ = bytes; }
  void keep_after(std::string_view bytes) { after_ = bytes; }
  void keep(std::string_view bytes);
  int64_t count() const { return count_; }

  /// Words name numbers in the summary: "2 rejected, 5 done". `fault` names a single one.
  struct Words {
    const char *fault = "rejected", *faults = "rejected", *done = "done";
  };
  /// finish reports the number of faults and what was done, and replaces the file for rejects. Returns the exit status.
  int finish(int64_t done, const Words &words);
  int finish(int64_t done) { return finish(done, {}); }

 private:
  void write(const char *kind, const Place &place, const std::string &words, tools::Progress &progress);

  const Options &options_;
  const Console &console_;
  std::ostream &out_;
  std::string input_;
  std::optional<catalog::AtomicWriter> file_;
  std::string before_, after_;
  bool has_kept_ = false;
  int64_t count_ = 0;
};

}  // namespace rdm::soif_tool

#endif
