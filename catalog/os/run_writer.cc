// SPDX-License-Identifier: MIT
#include "catalog/os/run_writer.h"

namespace rdm::catalog {
namespace {

constexpr size_t largest_run = 256 << 10;
constexpr int64_t disk_step = 8 << 20;  // smaller ones would break the file into more extents

}  // namespace

/// run_for returns the run that ends at an offset. If there is none, it begins one in place of the other of the two.
RunWriter::Run &RunWriter::run_for(int64_t offset) {
  if (runs_[last_].end() == offset) return runs_[last_];
  last_ = 1 - last_;
  Run &run = runs_[last_];
  if (run.end() == offset) return run;
  flush(run);
  run.offset = run.started = offset;
  return run;
}

char *RunWriter::piece(int64_t offset, size_t size) {
  Run &run = run_for(offset);
  if (!run.bytes) run.bytes = std::make_unique_for_overwrite<char[]>(largest_run);
  if (run.size + size > largest_run) flush(run);
  char *const piece = &run.bytes[run.size];
  run.size += size;
  return piece;
}

void RunWriter::flush(Run &run) {
  if (run.size == 0) return;
  file_.write_at(run.offset, {run.bytes.get(), run.size});
  run.offset = run.end();
  run.size = 0;
  if (run.offset - run.started < disk_step) return;
  file_.start_writeback(run.started, run.offset);
  run.started = run.offset;
}

void RunWriter::flush() {
  for (Run &run : runs_) flush(run);
}

}  // namespace rdm::catalog
