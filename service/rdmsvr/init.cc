// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <libcs/log.h>

#include "qxapi/ascii.h"
#include "qxapi/line_reader.h"
#include "service/csid.h"
#include "service/rdm.h"
#include "service/schema.h"
#include "service/text.h"

using namespace rdm;

host_crit *rdm_service_crit = nullptr;
char *cs_csidcf = nullptr;

namespace {

constexpr int config_buffer_size = 4096, block_slots = 15;
constexpr char init_report_name[] = "rdm-init";

/// The values of the configuration, null for missing keys.
struct Settings {
  explicit Settings(const pblock *config)
      : bindir(host_param_find("bindir", config)),
        csid_config(host_param_find("csid-config", config)),
        csid_default(host_param_find("csid-default", config)),
        logfile(host_param_find("logfile", config)),
        debug_logfile(host_param_find("debug-logfile", config)),
        debug_loglevel(host_param_find("debug-loglevel", config)),
        tmpdir(host_param_find("tmpdir", config)) {}

  const char *bindir, *csid_config, *csid_default, *logfile, *debug_logfile, *debug_loglevel, *tmpdir;
};

/// An environment variable of child commands. putenv() keeps the text itself, so it stays allocated until a later
/// initialisation replaces it.
struct Variable {
  char *text;

  void put(HostText replacement) {
    if (!replacement || putenv(replacement.get()) != 0) return;
    host_free(text);
    text = replacement.release();
  }
};

Variable debug_level_variable, debug_file_variable, path_variable, tmpdir_variable;

/// create_section creates a section, unless an earlier initialisation did: hosts cannot release one. Returns false when
/// host_crit_create fails.
bool create_section(host_crit *&section) {
  if (section == nullptr) section = host_crit_create();
  return section != nullptr;
}

bool create_sections() {
  const bool log = create_section(rdm_log_crit), service = create_section(rdm_service_crit);
  if (log && service) return true;
  CSLOG(CSLOG_WARNING, "rdmsvr", "Critical section allocation failure.\n");
  return false;
}

void export_debug_settings(const Settings &settings) {
  debug_level_variable.put(format_text("QXCS_DEBUG_LOGLEVEL=%d", _cslog_level));
  if (settings.debug_logfile != nullptr)
    debug_file_variable.put(format_text("QXCS_DEBUG_LOGFILE=%s", settings.debug_logfile));
}

void export_paths(const Settings &settings) {
  const char *path = std::getenv("PATH");
  path_variable.put(path != nullptr ? format_text("PATH=%s:%s", settings.bindir, path)
                                    : format_text("PATH=%s", settings.bindir));
  if (settings.tmpdir != nullptr) tmpdir_variable.put(format_text("TMPDIR=%s", settings.tmpdir));
}

void open_transaction_log(const char *path, Session *sn, Request *rq) {
  if (logfd != -1) rdm_log_terminate();
  std::memset(logfile, 0, sizeof logfile);
  if (path == nullptr) return;
  std::string_view(path).copy(logfile, sizeof logfile - 1);
  logfd = host_open_append(logfile);
  if (logfd == -1) {
    const HostText text = format_text("Cannot append to %s: %s", logfile, host_last_error_text());
    if (text) host_report_error(0, init_report_name, sn, rq, "%s", text.get());
  }
  host_register_exit([](void *) { rdm_log_terminate(); }, nullptr);
}

/// require returns true if a key has a value; otherwise it reports that in the configuration block and on standard
/// error.
bool require(const char *value, const char *key, pblock *config) {
  if (value != nullptr) return true;
  char text[128];
  host_format(text, sizeof text, "Parameter '%s' required by rdm-init in configuration file.\n", key);
  host_param_add("error", text, config);
  std::fputs(text, stderr);
  return false;
}

void start_registry(const Settings &settings) {
  host_free(cs_csidcf);
  cs_csidcf = host_strdup(settings.csid_config);
  csid_init(cs_csidcf, settings.csid_default);
  host_register_exit([](void *) { csid_terminate(); }, nullptr);
}

/// start_schema loads the schema description of the default service, if it has one.
void start_schema(const Settings &settings) {
  if (const char *path = csid_findval("schema-description", settings.csid_default)) schema_translate_init(path);
  host_register_exit([](void *) { schema_translate_terminate(); }, nullptr);
}

/// read_configuration adds the pairs of every line that is not a comment to the block. Returns false if the file cannot
/// be opened or read to its end, or allocation fails: the service must not start with a partial configuration.
bool read_configuration(const char *path, pblock *config) {
  LineReader reader(path, config_buffer_size);
  if (!reader) return false;
  while (const char *line = reader.next())
    if (host_param_parse(line, config) < 0) return false;
  return reader.is_at_end();
}

}  // namespace

int rdm_init(pblock *pb, Session *sn, Request *rq) noexcept {
  const char *path = host_param_find("config", pb);
  if (path == nullptr) {
    static constexpr char text[] = "rdm-init requires 'config' parameter.";
    host_param_add("error", text, pb);
    std::fputs(text, stderr);
    return -1;
  }
  const PblockPtr config(host_param_create(block_slots));
  if (!config || !read_configuration(path, config.get())) {
    host_report_error(0, init_report_name, sn, rq, "%s", "config not readable?\n");
    return -1;
  }
  return rdm_init_real(config.get(), sn, rq);
}

int rdm_init_real(pblock *config, Session *sn, Request *rq) noexcept {
  const Settings settings(config);
  cslog_init(settings.debug_loglevel != nullptr ? ascii::to_int32(settings.debug_loglevel) : 1, settings.debug_logfile);
  if (!create_sections()) return -1;
  export_debug_settings(settings);
  open_transaction_log(settings.logfile, sn, rq);
  if (!require(settings.bindir, "bindir", config)) return -1;
  export_paths(settings);
  if (!require(settings.csid_config, "csid-config", config)) return -1;
  if (!require(settings.csid_default, "csid-default", config)) return -1;
  start_registry(settings);
  start_schema(settings);
  CSLOG(CSLOG_NOTE, "rdmsvr", "RDM server is on-line.\n");
  return 0;
}
