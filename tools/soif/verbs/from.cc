// SPDX-License-Identifier: MIT
#include "tools/soif/conversion.h"
#include "tools/soif/input.h"
#include "tools/soif/writing_taker.h"

namespace rdm::soif_tool {
namespace {

/// ReadingTaker also keeps the identifiers of deleted records, or reports them.
class ReadingTaker : public WritingTaker {
 public:
  ReadingTaker(const Options &options, Faults &faults, tools::Progress &progress, Write write)
      : WritingTaker(faults, progress, std::move(write)) {
    if (!options.deletions.empty()) deletions_.emplace(options.deletions);
  }

  void remove(const std::string &identifier, const Place &place) override {
    if (deletions_)
      deletions_->write(identifier + "\n");
    else
      note(place, "deleted: " + identifier);
  }

  /// finish puts the file into its place.
  void finish() {
    if (!deletions_) return;
    deletions_->finish();
    deletions_->commit();
  }

 private:
  std::optional<catalog::AtomicWriter> deletions_;
};

}  // namespace

int from(const Options &options, const Console &console) {
  const Input input(inputs_of(options).front(), options, console);
  const Conversion conversion = conversion_of(options);
  Faults faults(options, console, console.errors);
  Output output(options, console);
  faults.enter(input.name());
  tools::Progress progress(console.errors, console.progress, "soif: reading", input.size());
  ReadingTaker taker(options, faults, progress, [&](const Description &description) {
    std::string fault = fault_of(description);
    if (fault.empty()) output.write(soif_of(description));
    progress.advance(1, 0);
    return fault;
  });
  const auto read = [&](char *bytes, size_t size) {
    const size_t got = input.read(bytes, size);
    progress.advance(0, static_cast<int64_t>(got));
    return got;
  };
  ByteSource source(read, input.name());
  format_named(options.format).read(source, conversion, taker);
  output.finish();
  taker.finish();
  return faults.finish(taker.written());
}

}  // namespace rdm::soif_tool
