// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include <libcs/cs.h>
#include <libcs/log.h>

#include "libcs/soif/field_reader.h"
#include "qxapi/ascii.h"
#include "service/csid.h"
#include "service/message.h"
#include "service/rds/answer.h"
#include "service/rds/planned_descriptions.h"

using namespace rdm;

namespace {

constexpr char bad_scope[] = "Invalid RDM RD-Request message -- Bad scope.\n";
constexpr int32_t query_limit = 8192;  // bytes of a request body that are read
constexpr int attribute_limit = 255;
constexpr size_t longest_name = 4095;  // of an attribute
char no_attribute[] = "{";             // a brace ends names, so no attribute has this name

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

/// QueryText is the query object in a request body.
class QueryText {
 public:
  /// The attributes that are read.
  enum Field { scope, view_hits, view_attributes, field_count };

  explicit QueryText(csio *body) noexcept
      : reader_(text_, static_cast<size_t>(std::max(csio_copy(body, text_, query_limit), 0))) {}

  /// parse returns true if the body begins with a query object, or with a header and a query object.
  bool parse() noexcept {
    bool is_read = reader_.next(fields_);
    if (is_read && ascii::iequals(reader_.template_name(), "RDMHEADER")) is_read = reader_.next(fields_);
    return is_read && ascii::iequals(reader_.template_name(), "RDMQUERY");
  }

  /// value returns an attribute of the object, or null. The text may be changed.
  char *value(Field field) noexcept { return fields_[field].value; }

 private:
  char text_[query_limit + 1];
  soif::FieldReader reader_;
  soif::Field fields_[field_count] = {{"scope"}, {"view-hits"}, {"view-attributes"}};
};

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
bool read_scope(std::string_view text, Query &query) {
  constexpr std::string_view since = "since";
  if (ascii::istarts_with(text, "all")) return true;
  if (!ascii::istarts_with(text, since)) return false;
  const std::string_view time = text.substr(std::min(since.size() + 1, text.size()));
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

/// select finds which positions of an index a query selects. Returns false if a read fails.
bool select(IndexFile &index, const Query &query, Range &selected) {
  const int32_t start = query.since != 0 ? index.search(query.since) : 0;
  if (start < 0 || query.limit < 0) return !index.failed();
  selected.first = static_cast<uint32_t>(start);
  const uint32_t available = selected.first < index.count() ? index.count() - selected.first : 0;
  selected.count = query.limit == 0 ? available : std::min(available, static_cast<uint32_t>(query.limit));
  return !index.failed();
}

/// answer_from answers from a snapshot as send_since does. Returns false, with nothing sent, if the index cannot be
/// read or allocation fails.
bool answer_from(Snapshot &snapshot, Query &query, uint32_t *bytes, Session *sn, Request *rq) {
  Range selected;
  if (!select(snapshot.index(), query, selected)) return false;
  Body body;
  if (body.buffer() == nullptr) return false;
  query.limit = PlannedDescriptions(snapshot, query.attributes, body).print(selected);
  if (snapshot.index().failed()) return false;
  send_descriptions(std::move(body), query.limit, bytes, sn, rq);
  return true;
}

/// answer_quickly answers from the open snapshot of the catalog. Returns false, with nothing sent, if there is none:
/// the index must then be loaded.
bool answer_quickly(Query &query, const char *csid, uint32_t *bytes, Session *sn, Request *rq) {
  const char *database = csid_findval(catalog_key, csid);
  Snapshot *snapshot = database != nullptr ? snapshots::current(database) : nullptr;
  if (snapshot == nullptr) return false;
  if (answer_from(*snapshot, query, bytes, sn, rq)) return true;
  snapshots::drop(snapshot);
  return false;
}

/// answer_from_files loads the index, and reports what is wrong with it. Returns false if that failed.
bool answer_from_files(Query &query, const char *csid, uint32_t *bytes, Session *sn, Request *rq) {
  cs_dbindex index{};
  const bool loaded = cs_dbsearch_start(csid, &index) == 0;
  if (loaded) send_since(csid, &index, query.since, query.attributes, &query.limit, bytes, sn, rq);
  host_free(index.entries);
  return loaded;
}

/// answer_query searches and sends. Returns the result of the handler.
int32_t answer_query(Query &query, rdmhdr *header, csio *response, Session *sn, Request *rq) {
  uint32_t bytes = 0;
  int32_t result = 1;
  if (answer_quickly(query, header->csid, &bytes, sn, rq) || answer_from_files(query, header->csid, &bytes, sn, rq))
    note_hits(query.limit, rq);
  else
    result = refuse("Server Error: Cannot service request", header, response);
  // If the search failed, the log shows the requested limit.
  cs_dbsearch_log(query.limit, bytes, query.since, sn, rq);
  return result;
}

}  // namespace

int32_t rds_rd_request(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) noexcept {
  if (header->query_language == nullptr) CSLOG(CSLOG_ERROR, "rds", "No RDM-Query-Language?\n");
  if (header->query_language == nullptr || !ascii::iequals(header->query_language, "gatherer"))
    return rds_qmgr_do_error(header, body, response);

  QueryText text(body);
  if (!text.parse()) {
    CSLOG(CSLOG_WARNING, "rds", "Invalid RDMQUERY specification...\n");
    return refuse("Invalid RDMQUERY specification.", header, response);
  }
  const char *const scope_text = text.value(QueryText::scope);
  if (scope_text == nullptr) {
    CSLOG(CSLOG_WARNING, "rds", "No 'Scope' in Gatherer Query...\n");
    return refuse("Scope parameter required.", header, response);
  }
  Query query;
  if (const char *hits = text.value(QueryText::view_hits)) query.limit = ascii::to_int32(hits);
  if (char *names = text.value(QueryText::view_attributes)) split_at_commas(names, query.attributes);
  if (!read_scope(scope_text, query)) {
    host_set_status(sn, rq, 403, bad_scope);
    host_report_error(0, rdm_report_name, sn, rq, "%s", bad_scope);
    return refuse("Scope parameter malformed.", header, response);
  }
  return answer_query(query, header, response, sn, rq);
}

int32_t rds_qmgr_do_error(rdmhdr *header, csio *, csio *response) noexcept {
  rdm_answer(header, RDM_STATUS_RESPONSE, "Unsupported query language.");
  rdmhdr_print(header, response);
  append_text(response, "\n\nUnsupported query language.\n");
  csio_finish(response);
  return 0;
}
