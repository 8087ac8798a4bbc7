// SPDX-License-Identifier: MIT
/// Programs one of whose file operations fails.
#ifndef TESTS_FAULTS_IO_FAULT_H
#define TESTS_FAULTS_IO_FAULT_H

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "support/process.h"

namespace rdm::faults {

/// IoFault names a class of calls, which of them fails, and how. The error 0 stands for a call that does its work on a
/// single byte.
struct IoFault {
  std::string kind;
  long n = 0;
  int error = 0;

  /// A program goes on after these as if nothing had been.
  bool is_harmless() const;
};

void PrintTo(const IoFault &fault, std::ostream *out);

/// A program, by the name that it is called by, with its arguments and its standard input.
struct Call {
  std::string program;
  std::vector<std::string> arguments;
  std::string input;
};

/// run_with runs a program one of whose calls fails. The test fails where the program does not come to that call.
support::Finished run_with(const IoFault &fault, const Call &call);

/// count_calls runs a program to its end and returns how many calls of each class it makes.
std::map<std::string, long> count_calls(const Call &call);

/// io_faults returns the faults to be tried on a program with so many calls: of each class a call with each error
/// that it can meet, or every call where RDM_IO_FAULTS is "all".
std::vector<IoFault> io_faults(const std::map<std::string, long> &calls);

/// io_kinds returns the classes.
std::vector<std::string> io_kinds();

}  // namespace rdm::faults

#endif
