// SPDX-License-Identifier: MIT
/// Running the service in this process, as a host without a network.
#ifndef RDMCTL_SERVICE_H
#define RDMCTL_SERVICE_H

#include <iosfwd>
#include <string>

#include "hosts/common/exchange.h"

namespace rdm::rdmctl {

/// Service starts the service; its destructor runs the exit procedures. There can be only one at a time.
class Service {
 public:
  /// Service calls rdm_init with a configuration file. Reports of the service to its host are written to `errors`,
  /// which must outlive this object. Throws a Failure if the file cannot be read or the service refuses it.
  Service(const std::string &config, std::ostream &errors);
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service();

  /// require_catalog throws a Failure unless a catalog service of this CSID is configured with a database.
  static void require_catalog(const std::string &csid);

  /// log calls rdm_log, which writes the line that a handler has left in the exchange to the transaction log.
  static void log(hosts::Exchange &exchange);
};

}  // namespace rdm::rdmctl

#endif
