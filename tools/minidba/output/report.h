// SPDX-License-Identifier: MIT
/// How a verb says at its end what it did.
#ifndef MINIDBA_OUTPUT_REPORT_H
#define MINIDBA_OUTPUT_REPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Figure is a number and what it counts, in words that follow it: {"new", 3}.
struct Figure {
  const char *name;
  int64_t value;
};

/// report writes the number that the verb is about to standard output and, unless it is to be quiet, the details to
/// standard error ("minidba: 3 new, 1 changed"). As JSON all of it is one object on standard output.
/// `rejects`, when it is not empty, is a JSON array that becomes the object's last member.
void report(const Options &options, const Console &console, const Figure &result,
            const std::vector<Figure> &details = {}, const std::string &rejects = "");

}  // namespace rdm::minidba

#endif
