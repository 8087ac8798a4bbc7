// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/job.h"

#include <algorithm>
#include <string_view>

#include "hosts/common/log_text.h"
#include "hosts/rdmd/log.h"
#include "qxapi/ascii.h"

namespace rdm::rdmd {
namespace {

constexpr std::string_view service_path = "/rdm/";
constexpr std::string_view incoming = "incoming";
constexpr std::string_view harvest = "rd-request";

/// A message names its type near its start.
constexpr std::size_t searched = 1024;

bool contains(std::string_view text, std::string_view word) {
  return std::search(text.begin(), text.end(), word.begin(), word.end(),
                     [](char a, char b) { return ascii::lower(a) == ascii::lower(b); }) != text.end();
}

/// asks_for_few returns true for a query with one limit, of one to nine descriptions. Of several limits, the plug-in
/// may take another one.
bool asks_for_few(std::string_view query) {
  constexpr std::string_view limit = "view-hits=";
  const std::size_t at = query.find(limit);
  if (at == std::string_view::npos || at != query.rfind(limit) || (at > 0 && query[at - 1] != '&')) return false;
  const std::string_view value = query.substr(at + limit.size());
  return value.find_first_of("123456789") == 0 && (value.size() == 1 || value[1] == '&');
}

std::string_view entry(const std::vector<hosts::Field> &block, std::string_view name) {
  const auto found =
      std::find_if(block.begin(), block.end(), [name](const hosts::Field &field) { return field.name == name; });
  return found == block.end() ? std::string_view() : std::string_view(found->value);
}

}  // namespace

std::string describe(const hosts::ServiceRequest &request) {
  const std::string line = std::string(entry(request.line, "method")) + ' ' + std::string(entry(request.line, "uri"));
  return '"' + hosts::log_text(line, Escaping::quotes) + "\" (client " +
         describe_client(entry(request.client, "ip"), entry(request.variables, hosts::request_id_variable)) + ')';
}

bool is_prompt(const hosts::ServiceRequest &request) {
  const std::string_view uri = entry(request.line, "uri");
  const std::string_view name = uri.substr(std::min(service_path.size(), uri.size()));
  const std::string_view query = entry(request.line, "query");
  if (asks_for_few(query)) return true;
  if (!ascii::iequals(name, incoming)) return !ascii::iequals(name, harvest);
  return !contains(query, harvest) && !contains(std::string_view(request.body).substr(0, searched), harvest);
}

}  // namespace rdm::rdmd
