// SPDX-License-Identifier: MIT
#include "tools/common/rejection.h"

#include <nlohmann/json.hpp>

#include "qxapi/escaped.h"

namespace rdm::tools {
namespace {

using catalog::printable;
using catalog::SoifStream;
using Json = nlohmann::ordered_json;

constexpr size_t longest_url = 300;

/// with_count returns the attribute with a byte count: "title{3}".
std::string with_count(const SoifStream::Misfit &misfit, const std::string &count) {
  return printable(misfit.attribute, 60) + '{' + printable(count, 20) + '}';
}

/// whole_reason adds the byte count that would fit: "...; title{3} would fit, not title{9}".
std::string whole_reason(const std::string &reason, const SoifStream::Item &item) {
  if (!item.misfit) return reason;
  return reason + "; " + with_count(*item.misfit, std::to_string(item.misfit->fits)) + " would fit, not " +
         with_count(*item.misfit, item.misfit->count);
}

}  // namespace

Rejection rejection_of(SoifStream &stream, const SoifStream::Item &item, const std::string &reason) {
  return {stream.name(),
          item.number,
          stream.line_of(item.offset),
          item.offset,
          item.object ? std::string(item.object->url()) : item.url,
          whole_reason(reason, item),
          item.misfit};
}

std::string line_of(const Rejection &rejection) {
  return escaped(rejection.input) + ": line " + std::to_string(rejection.line) + ": " +
         (rejection.url.empty() ? "" : printable(rejection.url, longest_url) + ": ") + "object " +
         std::to_string(rejection.object) + " at byte " + std::to_string(rejection.byte) +
         " rejected: " + escaped(rejection.reason);
}

std::string json_of(const Rejection &rejection) {
  Json object{{"input", rejection.input}, {"object", rejection.object}, {"line", rejection.line},
              {"byte", rejection.byte},   {"url", rejection.url},       {"reason", rejection.reason}};
  if (rejection.misfit) {
    object["attribute"] = rejection.misfit->attribute;
    object["count"] = rejection.misfit->count;
    object["fits"] = rejection.misfit->fits;
  }
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace rdm::tools
