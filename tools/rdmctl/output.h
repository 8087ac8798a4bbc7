// SPDX-License-Identifier: MIT
/// What all verbs of rdmctl write: messages, JSON and progress.
#ifndef RDMCTL_OUTPUT_H
#define RDMCTL_OUTPUT_H

#include <ctime>
#include <functional>
#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include "catalog/transaction.h"
#include "tools/common/progress.h"
#include "tools/rdmctl/options.h"

namespace rdm::rdmctl {

using Json = nlohmann::ordered_json;

/// say writes a message for people, without control characters.
void say(std::ostream &errors, const std::string &text);

/// show_change calls `show`, which writes the result of a verb that has changed a catalog to `out`, and returns
/// `status`. If standard output cannot be written, it says so and returns exit_incomplete: exit_failure would mean that
/// nothing is changed. Throws std::ios::failure after EPIPE.
int show_change(std::ostream &out, std::ostream &errors, int status, const std::function<void()> &show);

/// text_of returns JSON on one line. Bytes that are not UTF-8 become U+FFFD.
std::string text_of(const Json &json);

/// iso_time returns a time in UTC: 2026-11-23T01:48:26Z.
std::string iso_time(time_t time);

/// shows_progress returns true if standard error is a terminal and the options do not say quiet.
bool shows_progress(const Options &options);

/// shown_by returns a callback that shows the bytes written.
catalog::ProgressCallback shown_by(tools::Progress &progress);

}  // namespace rdm::rdmctl

#endif
