// SPDX-License-Identifier: MIT
/// The service's calls of its host, in order.
#ifndef TESTS_SERVICE_SUPPORT_TRACE_H
#define TESTS_SERVICE_SUPPORT_TRACE_H

#include <string>
#include <vector>

#include <qxapi/qxapi.h>

namespace rdm::support {

/// Trace is a memory host that records, for its lifetime, the calls that concern parameter blocks, files and their
/// readers, sections ("log", "service"), statuses, answers, exits and reports. The names of files opened for writing
/// are omitted, as they are random.
class Trace {
 public:
  Trace();
  Trace(const Trace &) = delete;
  Trace &operator=(const Trace &) = delete;
  ~Trace();

  const std::vector<std::string> &calls() const;

  /// host is the current table. To replace more of it, change it and bind it again.
  qxapi_host host;
};

/// open_descriptors returns the number of open descriptors of the process.
long open_descriptors();

}  // namespace rdm::support

#endif
