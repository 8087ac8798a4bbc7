/// Any bytes as an HTTP request, read by the host's own intake and answered by the service from a small catalog.

#include <array>

#include "dba/guard.h"
#include "fuzz/fuzz.h"
#include "hosts/common/host_table.h"
#include "hosts/rdmd/intake.h"
#include "hosts/rdmd/request_head.h"
#include "service/rdm.h"

namespace {

constexpr char record[] = "@FILE { http://a/1\ntitle{3}:\tOne\nauthor-1{2}:\tMe\n}\n";
constexpr std::string_view index_bytes{
    "\x3e\xb1\xca\x0e\0\0\0\2"
    "\0\0\1\0\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0"
    "\0\0\2\0\0\0\0\0\0\0\0\2\0\0\0\0\0\0\0\0",
    48};

/// Service is the service with one catalog of two descriptions.
class Service {
 public:
  Service() {
    hosts::bind_host([](const hosts::Report &) {});
    write_catalog();
    folder_.write("server.rdm", "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n@SERVER { -\n}\n");
    folder_.write("csid.conf", "csid=\"x-catalog://localhost:80/a\" catalog-database=\"" + folder_.path("db") +
                                   "\" server-description=\"" + folder_.path("server.rdm") + "\"\n");
    const pblock_ptr config(host_param_create(3));
    host_param_add("bindir", "/nowhere", config.get());
    host_param_add("csid-config", folder_.path("csid.conf").c_str(), config.get());
    host_param_add("csid-default", "x-catalog://localhost:80/a", config.get());
    fuzz::require(rdm_init_real(config.get(), nullptr, nullptr) == 0, "the configuration");
  }

 private:
  void write_catalog() const {
    const database_ptr database(dba_open(folder_.path("db").c_str(), "w+"));
    for (const char *number : {"00000001", "00000002"}) {
      DBT key{const_cast<char *>(number), 8};
      const DBT value{const_cast<char *>(record), sizeof record - 1};
      fuzz::require(dba_put(database.get(), &key, &value) == 0, "a record");
    }
    folder_.write("db.idx", index_bytes);
  }

  fuzz::Folder folder_;
};

void serve(hosts::Exchange &exchange) {
  const pblock_ptr parameters(host_param_create(1));
  if (rdm_type(parameters.get(), exchange.session(), exchange.request()) != HOST_DONE) return;
  rdm_service(parameters.get(), exchange.session(), exchange.request());
  rdm_log(parameters.get(), exchange.session(), exchange.request());
  fuzz::require(exchange.started() && exchange.head().status == 200, "an answer");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Service service;
  std::string bytes(fuzz::text(data, size));
  rdmd::HeadReader reader(65536, 16384);
  const rdmd::HeadResult result = reader.take(bytes);
  const auto *head = std::get_if<rdmd::RequestHead>(&result);
  const auto target = head != nullptr ? rdmd::parse_target(head->target) : std::nullopt;
  if (!target || !rdmd::is_service_path(target->path)) return 0;
  const auto exchange = rdmd::make_exchange(*head, *target, "127.0.0.1");
  bytes.resize(std::min<uint64_t>(head->length.value_or(0), 32768));
  exchange->input(bytes);
  serve(*exchange);
  return 0;
}
