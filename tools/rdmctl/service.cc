// SPDX-License-Identifier: MIT
#include "tools/rdmctl/service.h"

#include <unistd.h>

#include <ostream>

#include "catalog/os/error.h"
#include "hosts/common/host_table.h"
#include "qxapi/escaped.h"
#include "service/csid.h"
#include "service/rdm.h"
#include "tools/rdmctl/configuration.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

PblockPtr parameters(const std::string &config) {
  PblockPtr block(host_param_create(2));
  if (!block || host_param_add("config", config.c_str(), block.get()) != 0) throw std::bad_alloc();
  return block;
}

}  // namespace

Service::Service(const std::string &config, std::ostream &errors) {
  require_readable(config);
  hosts::bind_host([&errors](const hosts::Report &report) { errors << "rdmctl: " << escaped(report.text) << '\n'; });
  const PblockPtr block = parameters(config);
  if (rdm_init(block.get(), nullptr, nullptr) == 0) return;
  hosts::run_exits();
  throw Failure("the service refuses " + config);
}

Service::~Service() { hosts::run_exits(); }

void Service::require_catalog(const std::string &csid) {
  if (csid_find(csid.c_str()) == nullptr) throw Failure("no catalog service " + csid + " in " + cs_csidcf);
  if (csid_findval("catalog-database", csid.c_str()) == nullptr)
    throw Failure("catalog service " + csid + " has no catalog-database in " + cs_csidcf);
}

void Service::log(hosts::Exchange &exchange) { rdm_log(nullptr, exchange.session(), exchange.request()); }

}  // namespace rdm::rdmctl
