// SPDX-License-Identifier: MIT
/// Messages about documents, and the summary.
#ifndef RDMGATHER_MESSAGES_H
#define RDMGATHER_MESSAGES_H

#include <cstdint>
#include <string>

#include "tools/common/progress.h"
#include "tools/rdmgather/listing.h"
#include "tools/rdmgather/options.h"

namespace rdm::gather {

struct Counts {
  int64_t described = 0, unchanged = 0, deleted = 0, failed = 0;
};

/// Messages writes lines for people or, if the options say so, JSON objects to standard error.
class Messages {
 public:
  /// The arguments must outlive this object.
  Messages(const Options &options, const Console &console, tools::Progress &progress)
      : options_(options), console_(console), progress_(progress) {}

  /// failed reports a file or directory that could not be read.
  void failed(const Fault &fault);
  /// deleted reports the URL of a document that has vanished.
  void deleted(const std::string &url);
  /// finish writes the summary: as JSON always, for people if anything failed.
  void finish(const Counts &counts);

 private:
  const Options &options_;
  const Console &console_;
  tools::Progress &progress_;
};

}  // namespace rdm::gather

#endif
