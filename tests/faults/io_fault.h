// SPDX-License-Identifier: MIT
/// Runs programs one of whose file operations fails.
#ifndef TESTS_FAULTS_IO_FAULT_H
#define TESTS_FAULTS_IO_FAULT_H

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "support/process.h"

namespace rdm::faults {

/// IoFault names a class of calls, the number of the failing call, and its errno. Error 0 stands for a call that
/// transfers a single byte.
struct IoFault {
  std::string kind;
  long n = 0;
  int error = 0;

  /// is_harmless returns true if programs must handle the fault without an error.
  bool is_harmless() const;
};

void PrintTo(const IoFault &fault, std::ostream *out);

/// Call is a program by its short name, with its command line and its standard input.
struct Call {
  std::string program;
  std::vector<std::string> arguments;
  std::string input;
};

/// run_with runs a program under a fault. It fails the test if the program does not reach that call.
support::Finished run_with(const IoFault &fault, const Call &call);

/// count_calls runs a program without a fault and returns how many calls of each class it makes, of several
/// processes the one with most.
std::map<std::string, long> count_calls(const Call &call);

/// io_faults returns the faults to try on a program with these calls: for each class and each of its errors one call,
/// or every call if RDM_IO_FAULTS is "all".
std::vector<IoFault> io_faults(const std::map<std::string, long> &calls);

/// io_kinds returns the names of the classes.
std::vector<std::string> io_kinds();

}  // namespace rdm::faults

#endif
