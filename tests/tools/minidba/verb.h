// SPDX-License-Identifier: MIT
/// Running verbs of minidba in the process of the test.
#ifndef TESTS_TOOLS_MINIDBA_VERB_H
#define TESTS_TOOLS_MINIDBA_VERB_H

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "support/process.h"

namespace rdm {

/// run_verb runs the program in this process, with a command line without its name. The input is a file, either at its
/// start or, so that it is copied first, behind it. `clock` returns the time in seconds since 1970.
support::Finished run_verb(
    const std::vector<std::string> &words, const std::string &input = "", bool can_be_read_twice = true,
    const std::function<time_t()> &clock = [] { return std::time(nullptr); });

}  // namespace rdm

#endif
