// SPDX-License-Identifier: MIT
#include "service/csid.h"

#include <cstring>

#include <libcs/log.h>

#include "qxapi/line_reader.h"
#include "service/alias.h"
#include "service/rds/snapshot.h"

using namespace rdm;

namespace {

constexpr int service_rows = 64;
constexpr int max_services = service_rows - 1;
constexpr int service_slots = 7;
constexpr int csid_buffer_size = 8192;

/// A catalog service. The first entry without a CSID ends the table.
struct Service {
  pblock *params;
  char *csid;
  pblock *a2p;
  pblock *p2a;
};

/// Plain pointers without destructors: threads may still look services up during exit().
Service services[service_rows];
char *default_service;

/// The state of reading a configuration file.
struct Loading {
  const char *file;
  int count;         // services stored
  Service *current;  // receives the pairs; null before the first and after an ignored one
};

void release_services() {
  snapshots::drop_all();
  for (Service *service = services; service->csid != nullptr; ++service) {
    host_free(service->csid);
    host_param_free(service->params);
    alias_destroy(service->a2p, service->p2a);
    *service = Service{};
  }
}

const Service *find_service(const char *csid) {
  if (csid == nullptr) return nullptr;
  for (const Service *service = services; service->csid != nullptr; ++service)
    if (std::strcmp(service->csid, csid) == 0) return service;
  return nullptr;
}

void report_memory(const Loading &loading) {
  CSLOG(CSLOG_ERROR, "csid", "csid_init: %s: Out of memory\n", loading.file);
}

void start_service(PblockPtr params, const char *csid, Loading &loading) {
  loading.current = nullptr;
  if (loading.count == max_services) {
    CSLOG(CSLOG_ERROR, "csid", "csid_init: %s: More than %d services, <CSID:%s> ignored\n", loading.file, max_services,
          csid);
    return;
  }
  HostText name(host_strdup(csid));
  if (!name) return report_memory(loading);
  loading.current = &services[loading.count++];
  loading.current->params = params.release();
  loading.current->csid = name.release();
}

void take_line(const char *line, Loading &loading) {
  PblockPtr pairs(host_param_create(service_slots));
  if (!pairs || host_param_parse(line, pairs.get()) < 0) {
    // The line may start a service, so the next pairs do not belong to the current one.
    loading.current = nullptr;
    return report_memory(loading);
  }
  if (const char *csid = host_param_find("csid", pairs.get()))
    start_service(std::move(pairs), csid, loading);
  else if (loading.current != nullptr && host_param_parse(line, loading.current->params) < 0)
    report_memory(loading);
}

bool report_file(const char *path) {
  const char *reason = host_last_error_text();
  CSLOG(CSLOG_ERROR, "csid", "csid_init: %s: %s\n", path, reason);
  return false;
}

/// read_file reads the configuration. After a read error, the registry is empty.
bool read_file(const char *path) {
  LineReader reader(path, csid_buffer_size);
  if (!reader.is_open()) return report_file(path);
  if (!reader) {
    CSLOG(CSLOG_ERROR, "csid", "csid_init: %s: Cannot buffer?\n", path);
    return false;
  }
  Loading loading{path, 0, nullptr};
  while (const char *line = reader.next()) take_line(line, loading);
  if (reader.is_at_end()) return true;
  report_file(path);
  release_services();
  return false;
}

void load_aliases() {
  for (Service *service = services; service->csid != nullptr; ++service) {
    const char *path = host_param_find("alias-file", service->params);
    if (path != nullptr && alias_init(&service->a2p, &service->p2a, path) != 0)
      CSLOG(CSLOG_ERROR, "csid", "alias_init failed for %s\n", service->csid);
  }
}

void check_default() {
  const char *csid = default_service;
  if (csid != nullptr && find_service(csid) == nullptr && std::strcmp(csid, "unknown") != 0)
    CSLOG(CSLOG_ERROR, "csid", "Invalid default <CSID:%s>!\n", csid);
}

}  // namespace

int csid_init(const char *file, const char *default_csid) noexcept {
  if (csid_default(default_csid) == nullptr && default_csid != nullptr)
    CSLOG(CSLOG_WARNING, "csid", "No default CSID?\n");
  release_services();
  if (file == nullptr) {
    CSLOG(CSLOG_ERROR, "csid", "csid_init: No filename for csid.conf?\n");
    return -1;
  }
  if (!read_file(file)) return -1;
  load_aliases();
  check_default();
  return 0;
}

void csid_terminate(void) noexcept {
  release_services();
  host_free(std::exchange(default_service, nullptr));
}

pblock *csid_find(const char *csid) noexcept {
  const Service *service = find_service(csid);
  return service == nullptr ? nullptr : service->params;
}

char *csid_findval(const char *name, const char *csid) noexcept {
  const pblock *params = csid_find(csid);
  return params == nullptr ? nullptr : host_param_find(name, params);
}

pblock *csid_finda2p(const char *csid) noexcept {
  const Service *service = find_service(csid);
  return service == nullptr ? nullptr : service->a2p;
}

pblock *csid_findp2a(const char *csid) noexcept {
  const Service *service = find_service(csid);
  return service == nullptr ? nullptr : service->p2a;
}

char *csid_default(const char *csid) noexcept {
  if (csid != nullptr) host_free(std::exchange(default_service, host_strdup(csid)));
  return default_service;
}
