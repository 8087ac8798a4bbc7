// SPDX-License-Identifier: MIT
#include <cstring>
#include <initializer_list>

#include <libcs/cs.h>

#include "libcs/guard.h"

using namespace rdm;

namespace {

struct Attribute {
  const char *name;
  const char *value;  // null: no attribute
};

void print_object(const char *template_name, int buckets, std::initializer_list<Attribute> attributes, csio *out) {
  const SoifPtr object = make_soif(template_name, "-", buckets);
  if (!object) return;
  for (const auto &[name, value] : attributes)
    if (value != nullptr) soif_insert(object.get(), name, value, static_cast<int32_t>(std::strlen(value)));
  SoifWriter(out).print(object.get());
}

void print_header(const char *type, const pblock *block, csio *out) {
  // With one bucket, attributes print in the order of insertion.
  print_object("RDMHEADER", 1,
               {{"rdm-version", "1.0"},
                {"rdm-type", type},
                {"rdm-query-language", host_param_find("ql", block)},
                {"catalog-service-id", host_param_find("csid", block)}},
               out);
  csio_append(out, "\n\n\n", 3);
}

void print_query(const pblock *block, csio *out) {
  print_object("RDMQUERY", 0,
               {{"scope", host_param_find("scope", block)},
                {"view-attributes", host_param_find("view-attributes", block)},
                {"view-hits", host_param_find("view-hits", block)},
                {"view-order", host_param_find("view-order", block)}},
               out);
}

}  // namespace

const char *pblock_pblock2rdm(pblock *block, csio *header, csio *query) noexcept {
  const char *type = host_param_find("type", block);
  if (type == nullptr) return "Malformed RDM request - GET requires type";
  print_header(type, block, header);
  print_query(block, query);
  csio_append(header, nullptr, 0);
  csio_append(query, nullptr, 0);
  return nullptr;
}
