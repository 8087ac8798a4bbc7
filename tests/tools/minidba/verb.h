// SPDX-License-Identifier: MIT
/// minidba's verbs without a process of their own.
#ifndef TESTS_TOOLS_MINIDBA_VERB_H
#define TESTS_TOOLS_MINIDBA_VERB_H

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "support/process.h"

namespace rdm {

/// run_verb does what the program does with these words, its name left out, and with the input as a file that can be
/// read twice or as one that cannot. `clock` tells the time.
support::Finished run_verb(
    const std::vector<std::string> &words, const std::string &input = "", bool can_be_read_twice = true,
    const std::function<time_t()> &clock = [] { return std::time(nullptr); });

}  // namespace rdm

#endif
