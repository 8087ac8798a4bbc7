// SPDX-License-Identifier: MIT
/// Parses any bytes as an HTTP request with the host's parser and has the service answer it from a small catalog.

#include "fuzz/site.h"
#include "hosts/common/host_table.h"
#include "hosts/rdmd/front/request_head.h"
#include "hosts/rdmd/front/request_target.h"
#include "hosts/rdmd/transform/transform.h"
#include "qxapi/guard.h"
#include "service/rdm.h"

using namespace rdm;

namespace {

/// Service is the service of site.h within this process.
class Service {
 public:
  Service() {
    hosts::bind_host([](const hosts::Report &) {});
    const PblockPtr config(host_param_create(1));
    host_param_add("config", site_.configuration().c_str(), config.get());
    fuzz::require(rdm_init(config.get(), nullptr, nullptr) == HOST_DONE, "rdm_init failed");
  }

 private:
  fuzz::Site site_;
};

void serve(hosts::Exchange &exchange) {
  const PblockPtr parameters(host_param_create(1));
  if (rdm_type(parameters.get(), exchange.session(), exchange.request()) != HOST_DONE) return;
  rdm_service(parameters.get(), exchange.session(), exchange.request());
  rdm_log(parameters.get(), exchange.session(), exchange.request());
  fuzz::require(exchange.started() && exchange.head().status == 200, "the request was not answered with status 200");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Service service;
  std::string bytes(fuzz::text(data, size));
  rdmd::HeadReader reader({65536, 16384, 1000});
  rdmd::HeadResult result = reader.take(bytes);
  auto *const head = std::get_if<rdmd::RequestHead>(&result);
  const auto target = head != nullptr ? rdmd::parse_target(head->target) : std::nullopt;
  if (!target || !rdmd::is_service_path(target->path)) return 0;
  hosts::ServiceRequest request = rdmd::make_request(*head, *target, "127.0.0.1");
  rdmd::read_wishes(request);
  hosts::Exchange exchange;
  hosts::fill(exchange, std::move(request));
  bytes.resize(std::min<uint64_t>(head->length.value_or(0), 32768));
  exchange.input(bytes);
  serve(exchange);
  return 0;
}
