// SPDX-License-Identifier: MIT
/// The calls that the service makes of its host, in their order.
#ifndef TESTS_SERVICE_SUPPORT_TRACE_H
#define TESTS_SERVICE_SUPPORT_TRACE_H

#include <string>
#include <vector>

#include <qxapi/qxapi.h>

namespace rdm::support {

/// Trace is a memory host that notes, for its lifetime, what is asked of it: blocks of pairs, files and their readers,
/// sections ("log", "service"), statuses, answers, exits and reports. Files that are opened for writing have no name
/// that a test could know.
class Trace {
 public:
  Trace();
  Trace(const Trace &) = delete;
  Trace &operator=(const Trace &) = delete;
  ~Trace();

  const std::vector<std::string> &calls() const;

  /// host is the table in force, for tests that replace more of it: bind it again after a change.
  qxapi_host host;
};

/// open_descriptors counts the descriptors that the process has open.
long open_descriptors();

}  // namespace rdm::support

#endif
