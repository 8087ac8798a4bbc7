// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iterator>

#include <libcs/cs.h>

#include "libcs/adt/name_hash.h"
#include "libcs/guard.h"
#include "libcs/soif/borrowed.h"
#include "libcs/soif/grammar.h"

using namespace rdm;

namespace {

/// The parameters of a query, in the order in which an object with the default number of buckets prints them.
constexpr const char *query_parameters[] = {"view-order", "view-attributes", "view-hits", "scope"};

constexpr uint32_t bucket_of(const char *name) { return name_hash(name) % uint32_t{soif::bucket_count}; }
static_assert(std::is_sorted(std::begin(query_parameters), std::end(query_parameters),
                             [](const char *a, const char *b) { return bucket_of(a) < bucket_of(b); }));

void print_header(const char *type, const pblock *block, csio *out) {
  soif::BorrowedObject<4> object("RDMHEADER", "-");
  object.add("rdm-version", "1.0");
  object.add("rdm-type", type);
  object.add("rdm-query-language", host_param_find("ql", block));
  object.add("catalog-service-id", host_param_find("csid", block));
  SoifWriter(out).print(object.get());
  csio_append(out, "\n\n\n", 3);
}

void print_query(const pblock *block, csio *out) {
  soif::BorrowedObject<std::size(query_parameters)> object("RDMQUERY", "-");
  for (const char *name : query_parameters) object.add(name, host_param_find(name, block));
  SoifWriter(out).print(object.get());
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
