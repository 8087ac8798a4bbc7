// SPDX-License-Identifier: MIT
/// The result of a verb.
#ifndef MINIDBA_OUTPUT_REPORT_H
#define MINIDBA_OUTPUT_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Figure is a number with the words that follow it in a message: {"new", 3}.
struct Figure {
  const char *name;
  int64_t value;
};

/// report writes the main number to standard output and, unless the options say quiet, the details to standard error:
/// "minidba: 3 new, 1 changed". As JSON, it writes one object with all of them to standard output; a `rejects` that is
/// not empty is a JSON array, its last member.
void report(const Options &options, const Console &console, const Figure &result,
            const std::vector<Figure> &details = {}, const std::string &rejects = "");

}  // namespace rdm::minidba

#endif
