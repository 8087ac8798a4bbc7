// SPDX-License-Identifier: MIT
/// One question to a catalog, answered by the service's handler or step by step by the exported procedures.
#ifndef TESTS_SERVICE_SUPPORT_QUESTION_H
#define TESTS_SERVICE_SUPPORT_QUESTION_H

#include <cstdint>
#include <ostream>
#include <string>

namespace rdm::support {

/// Question is what a gatherer asks of the catalog service "c".
struct Question {
  std::string scope = "all";
  std::string hits;   // empty: no limit
  std::string names;  // of attributes, between commas; empty: all
};

/// Reply is everything that can be seen of an answer.
struct Reply {
  int32_t result = 0;  // of the handler
  std::string bytes;   // sent, or left to send
  std::string type, length, hits;
  std::string log;          // the line for the transaction log from the message on
  std::string diagnostics;  // without times

  bool operator==(const Reply &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Reply &reply);

/// handled returns the reply of rds_rd_request.
Reply handled(const Question &question);

/// step_by_step returns the reply that the exported procedures give, which open the files of the catalog each time:
/// cs_dbsearch_start, send_since and cs_dbsearch_log.
Reply step_by_step(const Question &question);

/// Hour lets an hour pass for the service's judgement of files for its lifetime: all files are old, so their snapshots
/// stay open.
class Hour {
 public:
  Hour();
  Hour(const Hour &) = delete;
  Hour &operator=(const Hour &) = delete;
  ~Hour();

 private:
  int64_t (*before_)() noexcept;
};

}  // namespace rdm::support

#endif
