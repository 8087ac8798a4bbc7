// SPDX-License-Identifier: MIT
#include <cstring>
#include <limits>

#include <libcs/cs.h>
#include <libcs/log.h>

#include "dba/guard.h"
#include "qxapi/ascii.h"
#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/message.h"
#include "service/text.h"

using namespace rdm;

namespace {

constexpr char catalog_key[] = "catalog-database";
constexpr char report_name[] = "rdm-service";
constexpr char bad_scope[] = "Invalid RDM RD-Request message -- Bad scope.\n";
constexpr int32_t query_limit = 8192;  // bytes of a request body that are read
constexpr int attribute_limit = 255;
constexpr size_t longest_name = 4095;  // of an attribute
char no_attribute[] = "{";             // a brace ends names, so no attribute has this name
constexpr uint32_t memory_limit = 32768;
constexpr size_t key_size = 8;

/// A gatherer's query.
struct Query {
  time_t since = 0;
  int32_t limit = 0;
  char *attributes[attribute_limit + 1] = {};  // names within the query object, ended by null
};

/// refuse answers with an error message.
int32_t refuse(const char *message, rdmhdr *header, csio *response) {
  csio_reset(response);
  rdm_answer(header, RDM_STATUS_RESPONSE, message);
  rdmhdr_print(header, response);
  return 0;
}

/// parse_query returns the query object of a request body, or null.
SoifPtr parse_query(csio *body) {
  char text[query_limit] = {};
  const int32_t length = csio_copy(body, text, query_limit);
  SoifReader reader(std::string_view(text, static_cast<size_t>(std::max(length, 0))));
  SoifPtr object = reader.next();
  if (object && ascii::iequals(object->template_name, "RDMHEADER")) object = reader.next();
  if (object && !ascii::iequals(object->template_name, "RDMQUERY")) object.reset();
  return object;
}

/// split_at_commas splits a list in place into at most attribute_limit names. Names longer than any attribute's are
/// omitted. An empty list selects every attribute; a list whose names were all omitted selects none.
void split_at_commas(char *list, char **names) {
  if (*list == '\0') return;
  char **next = names, **const end = names + attribute_limit;
  while (list != nullptr && next != end) {
    char *const name = list;
    const size_t length = std::strcspn(name, ",");
    list = name[length] == ',' ? name + length + 1 : nullptr;
    name[length] = '\0';
    if (length <= longest_name) *next++ = name;
  }
  if (next == names) *next = no_attribute;
}

/// read_scope returns true if the scope is known. The character after "since" is ignored.
bool read_scope(std::string_view scope, Query &query) {
  constexpr std::string_view since = "since";
  if (ascii::istarts_with(scope, "all")) return true;
  if (!ascii::istarts_with(scope, since)) return false;
  const std::string_view time = scope.substr(std::min(since.size() + 1, scope.size()));
  cs_str2time(time.data(), &query.since);
  query.since = std::max<time_t>(query.since, 0);
  return true;
}

/// note_hits leaves the number of descriptions sent to the host.
void note_hits(int32_t count, Request *rq) {
  char text[24];
  host_itoa(count, text);
  rdm_set_variable(rdm_hits_variable, text, rq);
}

/// answer_query searches and sends. Returns the result of the handler.
int32_t answer_query(Query &query, rdmhdr *header, csio *response, Session *sn, Request *rq) {
  uint32_t bytes = 0;
  int32_t result = 1;
  cs_dbindex index{};
  if (cs_dbsearch_start(header->csid, &index) == 0) {
    send_since(header->csid, &index, query.since, query.attributes, &query.limit, &bytes, sn, rq);
    note_hits(query.limit, rq);
  } else {
    result = refuse("Server Error: Cannot service request", header, response);
  }
  host_free(index.entries);
  // If the search failed, the log shows the requested limit.
  cs_dbsearch_log(query.limit, bytes, query.since, sn, rq);
  return result;
}

/// make_key_list returns an empty list, or null. Its texts come from host_alloc, like all memory of a request, so that
/// hosts notice a failed allocation.
ListPtr make_key_list() {
  cslist *keys = nullptr;
  cslist_create(&keys);
  cslist_set_copy(keys, [](const void *key) -> void * { return host_strdup(static_cast<const char *>(key)); });
  cslist_set_free(keys, host_free);
  return ListPtr(keys);
}

/// select_keys returns the database keys from a position of the index on, at most `limit` unless that is 0. Returns
/// null if allocation fails.
ListPtr select_keys(const cs_dbindex *index, int32_t start, int32_t limit) {
  ListPtr keys = make_key_list();
  if (!keys || start < 0 || limit < 0) return keys;
  const auto first = static_cast<uint32_t>(start);
  const uint32_t available = index->entries != nullptr && first < index->count ? index->count - first : 0;
  const uint32_t wanted = limit == 0 ? available : std::min(available, static_cast<uint32_t>(limit));
  for (uint32_t i = first; i < first + wanted; ++i) {
    char key[key_size + 1];
    host_format(key, sizeof key, "%08x", index->entries[i].key);
    if (cslist_append(keys.get(), key) != 0 || keys->tail->data == nullptr) return nullptr;
  }
  return keys;
}

/// set_response_header replaces a response header. Returns false if allocation fails.
bool set_response_header(const char *name, const char *value, Request *rq) {
  pblock_remove_n_free(name, rq->response);
  return host_param_add(name, value, rq->response) == 0;
}

/// announce_length sets content type and content length. Returns false if allocation fails: with another length, the
/// answer would be cut.
bool announce_length(uint64_t length, Request *rq) {
  char text[24];
  host_itoa(static_cast<int64_t>(length), text);
  return set_response_header("content-type", "application/x-rdm", rq) &&
         set_response_header("content-length", text, rq);
}

/// make_header returns the printed header of an rd-response with `count` descriptions, or null if allocation fails.
CsioPtr make_header(int32_t count) {
  CsioPtr printed = make_csio();
  const RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
  if (!printed || !header) return nullptr;
  if (count == 0) header->error_message = host_strdup("0 results.");
  rdmhdr_print(header.get(), printed.get());
  csio_finish(printed.get());
  return printed;
}

/// printed_size returns the number of bytes that an object prints as. The size of its record may differ: the record may
/// omit newlines that the printer writes, or end within a value, which the parser then pads.
uint64_t printed_size(const SOIF *object) {
  uint64_t size = 0;
  const auto count = [](void *total, const void *, int32_t length) {
    *static_cast<uint64_t *>(total) += static_cast<uint64_t>(length);
    return length;
  };
  SoifWriter(count, &size).print(object);
  return size;
}

/// Descriptions prints records of one database.
struct Descriptions {
  DB *database;
  char **attributes;
  csio *output;

  /// read_record returns true if it has read the record of a key.
  bool read_record(char *key, DBT &record) const {
    const DBT wanted{key, key_size};
    const int result = dba_get(database, &wanted, &record);
    if (result == 1) CSLOG(CSLOG_WARNING, "rds", "No entry in %s: key %s\n", catalog_key, key);
    if (result == -1)
      CSLOG(CSLOG_ERROR, "rds", "Cannot read %s: key %s: %s\n", catalog_key, key, host_last_error_text());
    return result == 0;
  }

  SoifPtr parse(const DBT &record) const {
    SoifReader reader(std::string_view(static_cast<const char *>(record.data), record.size));
    if (attributes != nullptr && attributes[0] != nullptr) reader.accept(attributes);
    return reader.next();
  }

  /// has_room returns true if the object of a record and the answer's header fit the 32-bit length of the answer. It
  /// measures the object only if the estimate does not fit.
  bool has_room(const SOIF *object, const DBT &record) const {
    constexpr uint64_t header = 4096, framing = 32;  // bytes, at most: of the answer's header, and around a value
    const uint64_t taken = output->length + header, end = std::numeric_limits<uint32_t>::max();
    const auto values = static_cast<uint64_t>(object->value_bytes), count = static_cast<uint64_t>(object->attr_count);
    const uint64_t most = record.size + values + (count + 1) * framing;
    return taken + most <= end || taken + printed_size(object) <= end;
  }

  /// print_record prints the record of a key. Returns true if it did.
  bool print_record(char *key) const {
    DBT record{nullptr, 0};
    if (!read_record(key, record)) return false;
    const SoifPtr object = parse(record);
    if (!object) {
      CSLOG(CSLOG_WARNING, "rds", "Malformed RD in %s: key %s\n", catalog_key, key);
      return false;
    }
    if (!has_room(object.get(), record)) {
      CSLOG(CSLOG_ERROR, "rds", "No room in the answer for %s: key %s\n", catalog_key, key);
      return false;
    }
    SoifWriter(output).print(object.get());
    return true;
  }
};

}  // namespace

int32_t rds_rd_request(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) noexcept {
  if (header->query_language == nullptr) CSLOG(CSLOG_ERROR, "rds", "No RDM-Query-Language?\n");
  if (header->query_language == nullptr || !ascii::iequals(header->query_language, "gatherer"))
    return rds_qmgr_do_error(header, body, response);

  const SoifPtr object = parse_query(body);
  if (!object) {
    CSLOG(CSLOG_WARNING, "rds", "Invalid RDMQUERY specification...\n");
    return refuse("Invalid RDMQUERY specification.", header, response);
  }
  const char *scope = soif_findval(object.get(), "scope");
  if (scope == nullptr) {
    CSLOG(CSLOG_WARNING, "rds", "No 'Scope' in Gatherer Query...\n");
    return refuse("Scope parameter required.", header, response);
  }
  Query query;
  if (const char *hits = soif_findval(object.get(), "view-hits")) query.limit = ascii::to_int32(hits);
  if (char *names = soif_findval(object.get(), "view-attributes")) split_at_commas(names, query.attributes);
  if (!read_scope(scope, query)) {
    host_set_status(sn, rq, 403, bad_scope);
    host_report_error(0, report_name, sn, rq, "%s", bad_scope);
    return refuse("Scope parameter malformed.", header, response);
  }
  return answer_query(query, header, response, sn, rq);
}

int send_since(const char *csid, cs_dbindex *index, time_t since, char **attributes, int32_t *count, uint32_t *bytes,
               Session *sn, Request *rq) noexcept {
  const int32_t limit = std::exchange(*count, 0);
  *bytes = 0;
  CsioPtr descriptions = make_csio(memory_limit);
  if (!descriptions) return -1;
  const ListPtr keys = select_keys(index, since != 0 ? cs_dbsearch(index, since) : 0, limit);
  if (!keys) return -1;
  if (keys->count > 0) *count = rds_send_rd(csid, keys.get(), attributes, descriptions.get());
  csio_finish(descriptions.get());
  CsioPtr header = make_header(*count);
  if (!header) return -1;

  const uint64_t length = static_cast<uint64_t>(header->length) + descriptions->length;
  if (!announce_length(length, rq)) return -1;
  *bytes = static_cast<uint32_t>(length);
  const int sent = rdm_send_result(1, header.release(), sn, rq);
  return descriptions->length != 0 ? rdm_send_result(0, descriptions.release(), sn, rq) : sent;
}

int32_t rds_send_rd(const char *csid, cslist *keys, char **attributes, csio *output) noexcept {
  const char *path = csid_findval(catalog_key, csid);
  if (path == nullptr) {
    CSLOG(CSLOG_ERROR, "rds", "Require '%s' for <CSID:%s>\n", catalog_key, LogText(shown(csid)).c_str());
    return 0;
  }
  const DatabasePtr database(dba_open(path, "r"));
  if (!database) {
    CSLOG(CSLOG_ERROR, "rds", "Cannot read %s: %s: %s\n", catalog_key, path, host_last_error_text());
    return 0;
  }
  const Descriptions descriptions{database.get(), attributes, output};
  int32_t printed = 0;
  for (const cslist_node *node = keys->head; node != nullptr; node = node->next)
    if (node->data != nullptr && descriptions.print_record(static_cast<char *>(node->data))) ++printed;
  return printed;
}

void cs_dbsearch_log(int32_t count, uint32_t bytes, time_t since, Session *sn, Request *rq) noexcept {
  char time[256] = "", message[512], size[24];
  if (since > 0) cs_time2str(since, time, sizeof time);
  host_format(message, sizeof message, "%d RDs Transfered%s%s", count, since > 0 ? " since " : "", time);
  host_itoa(bytes, size);
  rdm_log_add(message, nullptr, size, sn, rq);
}

int32_t rds_qmgr_do_error(rdmhdr *header, csio *, csio *response) noexcept {
  rdm_answer(header, RDM_STATUS_RESPONSE, "Unsupported query language.");
  rdmhdr_print(header, response);
  append_text(response, "\n\nUnsupported query language.\n");
  csio_finish(response);
  return 0;
}
