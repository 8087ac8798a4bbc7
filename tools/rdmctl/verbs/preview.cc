// SPDX-License-Identifier: MIT
#include <charconv>
#include <ctime>
#include <ostream>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "hosts/common/exchange.h"
#include "qxapi/counted.h"
#include "service/message.h"
#include "tools/common/time_text.h"
#include "tools/rdmctl/log_owner.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/service.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::attribute_head;
using catalog::Failure;

std::string attribute(std::string_view name, const std::string &value) {
  return attribute_head(name, value.size()) + value + "\n";
}

std::string joined(const std::vector<std::string> &names) {
  std::string list;
  for (const std::string &name : names) list += (list.empty() ? "" : ",") + name;
  return list;
}

/// query_of returns the query object of a gatherer.
std::string query_of(const Options &options, time_t since) {
  std::string query = "@RDMQUERY { -\n" + attribute("scope", since == 0 ? "all" : "since " + catalog::date_of(since));
  if (!options.attributes.empty()) query += attribute("view-attributes", joined(options.attributes));
  if (options.hits > 0) query += attribute("view-hits", std::to_string(options.hits));
  return query + "}\n";
}

struct Answer {
  int64_t descriptions = 0, bytes = 0;
};

/// answer_to passes a query to the service, which counts the bytes of its answer without writing them.
Answer answer_to(const std::string &query, const std::string &csid) {
  const RdmHeaderPtr header = make_rdmhdr(RDM_RD_REQUEST);
  const CsioPtr body = make_csio(), response = make_csio();
  if (!header || !body || !response) throw std::bad_alloc();
  header->csid = host_strdup(csid.c_str());
  header->query_language = host_strdup("gatherer");
  csio_append(body.get(), query.data(), static_cast<int32_t>(query.size()));
  csio_rewind(body.get());
  hosts::Exchange exchange;
  exchange.client("ip", "-");
  exchange.head_only();
  const int32_t result =
      rds_rd_request(header.get(), body.get(), response.get(), exchange.session(), exchange.request());
  if (result != 1 || !exchange.started()) throw Failure("the service refuses the query, or cannot read the catalog");
  Answer answer{0, exchange.head().length.value_or(0)};
  const std::string hits = exchange.variable(rdm_hits_variable);
  std::from_chars(hits.data(), hits.data() + hits.size(), answer.descriptions);
  return answer;
}

}  // namespace

int preview(const Options &options, std::ostream &out, std::ostream &errors) {
  const time_t since = options.since.empty() ? 0 : tools::read_time(options.since, std::time(nullptr));
  become_log_owner(options.config, errors);
  const Service service(options.config, errors);
  Service::require_catalog(options.csid);
  const Answer answer = answer_to(query_of(options, since), options.csid);
  if (options.json)
    out << text_of({{"csid", options.csid}, {"descriptions", answer.descriptions}, {"bytes", answer.bytes}}) << '\n';
  else
    out << counted(answer.descriptions, "description") << ", " << counted(answer.bytes, "byte") << '\n';
  return exit_done;
}

}  // namespace rdm::rdmctl
