// SPDX-License-Identifier: MIT
#include "faults/io_fault.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/environment.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

struct Kind {
  std::string name;
  std::vector<int> errors;
};

const std::vector<Kind> kinds = {
    {"open", {EMFILE, EIO, EINTR}},
    {"fopen", {EMFILE, EIO}},
    {"read", {EIO, 0, EINTR}},
    {"fread", {EIO, 0}},
    {"write", {ENOSPC, EIO, 0, EINTR}},
    {"seek", {EIO}},
    {"sync", {EIO, EINTR}},
    {"truncate", {ENOSPC, EINTR}},
    {"close", {EIO, EINTR}},
    {"stat", {EIO, EACCES}},
    {"copy", {EIO, ENOSPC, 0, EINTR}},
    {"rename", {EIO}},
    {"unlink", {EIO}},
    {"chmod", {EPERM}},
    {"lock", {ENOLCK, EINTR}},
    {"duplicate", {EMFILE}},
    {"directory", {EIO}},
};

support::Finished run_noting(const std::string &fault, const Call &call, const std::string &notes) {
  const support::Environment fails("IO_FAULT", (call.program + " " + fault).c_str()),
      noted("IO_FAULT_HIT", notes.c_str()), shim("LD_PRELOAD", support::in_build("lib/libio_shim.so").c_str());
  return support::run(call.arguments, call.input);
}

bool is_complete() {
  const char *extent = std::getenv("RDM_IO_FAULTS");
  return extent != nullptr && std::strcmp(extent, "all") == 0;
}

/// chosen returns the numbers of the calls that are to fail: all, or one that differs from turn to turn.
std::vector<long> chosen(long calls, long turn) {
  std::vector<long> chosen;
  for (long n = 1; n <= calls; ++n)
    if (is_complete() || n == 1 + turn * 7 % calls) chosen.push_back(n);
  return chosen;
}

}  // namespace

bool IoFault::is_harmless() const { return error == 0 || error == EINTR; }

void PrintTo(const IoFault &fault, std::ostream *out) {
  *out << fault.kind << ' ' << fault.n << ": " << (fault.error == 0 ? "one byte" : std::strerror(fault.error));
}

support::Finished run_with(const IoFault &fault, const Call &call) {
  const support::TemporaryDirectory directory;
  const std::string text = fault.kind + " " + std::to_string(fault.n) + " " + std::to_string(fault.error);
  support::Finished finished = run_noting(text, call, directory.path("notes"));
  EXPECT_TRUE(support::file_exists(directory.path("notes"))) << "no call failed";
  return finished;
}

std::map<std::string, long> count_calls(const Call &call) {
  const support::TemporaryDirectory directory;
  run_noting("count 0 0", call, directory.write("notes", ""));
  std::map<std::string, long> calls;
  std::istringstream notes(support::read_file(directory.path("notes")));
  long number = 0;
  for (std::string kind; notes >> kind >> number;) calls[kind] = std::max(calls[kind], number);
  return calls;
}

std::vector<IoFault> io_faults(const std::map<std::string, long> &calls) {
  std::vector<IoFault> faults;
  long turn = 0;
  for (const Kind &kind : kinds)
    for (const int error : kind.errors) {
      const auto count = calls.find(kind.name);
      if (count == calls.end()) continue;
      for (const long n : chosen(count->second, turn++)) faults.push_back({kind.name, n, error});
    }
  return faults;
}

std::vector<std::string> io_kinds() {
  std::vector<std::string> names;
  for (const Kind &kind : kinds) names.push_back(kind.name);
  return names;
}

}  // namespace rdm::faults
