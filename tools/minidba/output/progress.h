// SPDX-License-Identifier: MIT
/// The progress of a verb on a terminal.
#ifndef MINIDBA_OUTPUT_PROGRESS_H
#define MINIDBA_OUTPUT_PROGRESS_H

#include <string>

#include "tools/common/progress.h"
#include "tools/minidba/options.h"

namespace rdm::minidba {

/// Progress shows a progress line on a console with its `progress` on, which must outlive it. `work` names the work.
class Progress : public tools::Progress {
 public:
  Progress(const Console &console, const std::string &work, int64_t total_bytes = 0, Clock clock = steady_seconds)
      : tools::Progress(console.errors, console.progress, "minidba: " + work, total_bytes, std::move(clock)) {}
};

}  // namespace rdm::minidba

#endif
