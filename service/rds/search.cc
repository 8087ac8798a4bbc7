// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>
#include <utility>

#include <libcs/cs.h>
#include <libcs/log.h>

#include "dba/guard.h"
#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/rdm.h"
#include "service/rds/answer.h"
#include "service/rds/descriptions.h"
#include "service/text.h"

using namespace rdm;

namespace {

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

}  // namespace

int send_since(const char *csid, cs_dbindex *index, time_t since, char **attributes, int32_t *count, uint32_t *bytes,
               Session *sn, Request *rq) noexcept {
  const int32_t limit = std::exchange(*count, 0);
  *bytes = 0;
  Body descriptions;
  if (descriptions.buffer() == nullptr) return -1;
  const ListPtr keys = select_keys(index, since != 0 ? cs_dbsearch(index, since) : 0, limit);
  if (!keys) return -1;
  if (keys->count > 0) *count = rds_send_rd(csid, keys.get(), attributes, descriptions.buffer());
  return send_descriptions(std::move(descriptions), *count, bytes, sn, rq);
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
  const Descriptions descriptions(database.get(), attributes, output);
  int32_t printed = 0;
  for (const cslist_node *node = keys->head; node != nullptr; node = node->next)
    if (node->data != nullptr && descriptions.print(static_cast<const char *>(node->data))) ++printed;
  return printed;
}

void cs_dbsearch_log(int32_t count, uint32_t bytes, time_t since, Session *sn, Request *rq) noexcept {
  constexpr size_t time_size = 256;
  char message[time_size + 64], size[24];
  host_itoa(count, message);
  char *const end = stpcpy(message + std::strlen(message), " RDs Transfered");
  if (since > 0) cs_time2str(since, stpcpy(end, " since "), time_size);
  host_itoa(bytes, size);
  rdm_log_add(message, nullptr, size, sn, rq);
}
