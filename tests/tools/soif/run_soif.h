// SPDX-License-Identifier: MIT
/// Running verbs of soif in the process of the test.
#ifndef TESTS_TOOLS_SOIF_RUN_SOIF_H
#define TESTS_TOOLS_SOIF_RUN_SOIF_H

#include <string>
#include <vector>

#include "support/process.h"

namespace rdm {

/// run_soif runs the program in this process, with a command line without its name.
support::Finished run_soif(std::vector<std::string> words, const std::string &input = "");

}  // namespace rdm

#endif
