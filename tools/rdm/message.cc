// SPDX-License-Identifier: MIT
#include "tools/rdm/message.h"

#include "catalog/record.h"
#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

/// header_limit is the size of the longest header that servers read: longer ones are cut.
constexpr size_t header_limit = 1023;

std::string attribute(const std::string &name, const std::string &value) {
  return catalog::attribute_head(name, value.size()) + value + "\n";
}

std::string header_of(const Request &request) {
  std::string text = "@RDMHEADER { -\n" + attribute("rdm-version", "1.0") + attribute("rdm-type", request.type);
  if (request.query) text += attribute("rdm-query-language", "gatherer");
  if (!request.csid.empty()) text += attribute("catalog-service-id", request.csid);
  return text + "}\n";
}

std::string scope_of(const Query &query) { return query.since == 0 ? "all" : "since " + catalog::date_of(query.since); }

std::string names_of(const Query &query) {
  std::string list;
  for (const std::string &name : query.attributes) list += (list.empty() ? "" : ",") + name;
  return list;
}

std::string body_of(const Query &query) {
  std::string text = "@RDMQUERY { -\n" + attribute("scope", scope_of(query));
  if (!query.attributes.empty()) text += attribute("view-attributes", names_of(query));
  if (query.hits > 0) text += attribute("view-hits", std::to_string(query.hits));
  return text + "}\n";
}

}  // namespace

std::string message_of(const Request &request) {
  const std::string header = header_of(request);
  if (header.size() > header_limit) throw Failure("the catalog service identifier is too long");
  // Servers expect at least one byte after the empty line.
  return header + "\n" + (request.query ? body_of(*request.query) : "\n");
}

std::string answer_type(const std::string &type) { return type.substr(0, type.rfind('-')) + "-response"; }

std::string description_of(const Request &request) {
  if (!request.query) return request.type;
  const Query &query = *request.query;
  std::string text = request.type + " " + scope_of(query);
  if (!query.attributes.empty()) text += ", attributes " + names_of(query);
  if (query.hits > 0) text += ", at most " + std::to_string(query.hits);
  return text;
}

}  // namespace rdm::client
