// SPDX-License-Identifier: MIT
/// The service inside this process: what a host is to it, without a network.
#ifndef RDMCTL_SERVICE_H
#define RDMCTL_SERVICE_H

#include <iosfwd>
#include <string>

#include "hosts/common/exchange.h"

namespace rdm::rdmctl {

/// Service is set up from a configuration file and runs its exits at the end of its scope. There is one at a time.
class Service {
 public:
  /// What the service reports to its host goes to `errors`. Throws a Failure when the service refuses the file.
  Service(const std::string &config, std::ostream &errors);
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service();

  /// require_catalog throws a Failure unless the catalog service is configured and has a database.
  static void require_catalog(const std::string &csid);

  /// log writes the line that a handler left in the exchange to the transaction log.
  static void log(hosts::Exchange &exchange);
};

}  // namespace rdm::rdmctl

#endif
