// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <libcs/cs.h>
#include <libcs/log.h>

#include "qxapi/ascii.h"
#include "qxapi/fatal.h"
#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/message.h"
#include "service/rds/descriptions.h"
#include "service/text.h"

using namespace rdm;

namespace {

constexpr char import_failed[] = "Failed to import RDs";

using SystemText = std::unique_ptr<char, Deleter<std::free>>;

/// temporary_file creates an empty file with a new name in the temporary directory, with O_EXCL. Returns null if
/// tempnam() or open() fails.
SystemText temporary_file(const char *prefix) {
  constexpr int attempts = 16;
  // In a privileged program, tempnam() ignores TMPDIR. The loader has removed the caller's value, so a value found here
  // was set from the configuration.
  const char *directory = ::getauxval(AT_SECURE) != 0 ? std::getenv("TMPDIR") : nullptr;
  for (int i = 0; i < attempts; ++i) {
    SystemText name(::tempnam(directory, prefix));
    if (!name) return nullptr;
    const HostFileGuard file(::open(name.get(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file) return name;
  }
  return nullptr;
}

/// ResultFile is a temporary file for the number that a command prints, removed at the end of its scope.
class ResultFile {
 public:
  ResultFile() : name_(temporary_file("csrds")) {}
  ResultFile(const ResultFile &) = delete;
  ResultFile &operator=(const ResultFile &) = delete;
  ~ResultFile() {
    if (name_) host_unlink(name_.get());
  }
  explicit operator bool() const { return name_ != nullptr; }
  const char *name() const { return name_.get(); }

  /// number returns the decimal number at the start of the file, or 0.
  int number() const {
    const StdioPtr file = open_stdio(name_.get());
    char text[64] = {};
    if (!file || std::fread(text, 1, sizeof text - 1, file.get()) == 0) return 0;
    return static_cast<int>(std::strtol(text, nullptr, 10));
  }

 private:
  SystemText name_;
};

/// holds_all returns true if the file has every byte of the body. It compares st_size with body->length, because csio
/// does not report failed writes.
bool holds_all(const csio *body) {
  struct stat status;
  return body->filename != nullptr && host_stat(body->filename, &status) == 0 &&
         static_cast<uint64_t>(status.st_size) == body->length;
}

/// give_empty_file creates an empty file and sets remove_file, so that releasing the body unlinks it. Returns false if
/// that fails.
bool give_empty_file(csio *body) {
  const SystemText name = temporary_file("csio");
  if (!name) return false;
  body->filename = host_strdup(name.get());
  if (body->filename == nullptr)
    host_unlink(name.get());
  else
    body->remove_file = 1;
  return body->filename != nullptr;
}

/// ensure_file moves the body to a file; an empty body gets an empty file. Returns true if the file has all of it.
bool ensure_file(csio *body) {
  const uint32_t length = body->length;
  csio_convert2file(body);
  // A body that was in a file before may have bytes in its write-behind block.
  csio_rewind(body);
  // If the file could not be created, the body is empty now.
  if (body->length != length) return false;
  return body->filename == nullptr && length == 0 ? give_empty_file(body) : holds_all(body);
}

/// run runs a command, whose exit status is ignored: only the numbers that commands print count. Returns false if the
/// command is null because allocation failed.
bool run(const HostText &command) {
  if (command)
    cs_cli_run(command.get(), nullptr);
  else
    CSLOG(CSLOG_ERROR, "rds", "No memory for a command of the import\n");
  return command != nullptr;
}

/// The catalog of an import. Its paths are passed to the shell unquoted. Each step returns false if allocation fails
/// for its command.
struct Catalog {
  const char *database;
  HostText index;

  bool update(const char *body, const ResultFile &result, int &accepted) const {
    if (!run(format_text("minidba -d %s update < %s > %s", database, body, result.name()))) return false;
    accepted = result.number();
    return true;
  }

  bool expire() const {
    const ResultFile result;
    if (!result) return true;
    if (!run(format_text("minidba -d %s expire > %s", database, result.name()))) return false;
    const int expired = result.number();
    if (expired > 0) CSLOG(CSLOG_NOTE, "rds", "Expired %d RDs.\n", expired);
    return true;
  }

  bool rebuild_index() const {
    const ResultFile result;
    if (!result) return true;
    if (!run(format_text("minidba -d %s -i %s index > %s", database, index.get(), result.name()))) return false;
    CSLOG(CSLOG_NOTE, "rds", "Indexed %d RDs.\n", result.number());
    return true;
  }

  /// list_unclassified writes the list to the database's directory, if its path names one.
  bool list_unclassified() const {
    const char *slash = std::strrchr(database, '/');
    if (slash == nullptr) return true;
    const HostText list = format_text("%.*s/unclassified", static_cast<int>(slash - database), database);
    if (!list) return run(nullptr);
    host_unlink(list.get());
    return run(format_text("minidba -d %s -i %s unclassified > %s", database, index.get(), list.get()));
  }
};

/// import_into performs the four steps of an import. Returns false if no result file can be created for the update, or
/// if allocation fails for a command. Expiry and index are skipped if their result file cannot be created.
bool import_into(const Catalog &catalog, const char *body, int &accepted) {
  bool is_complete = false;
  {
    const ResultFile result;
    if (!result) {
      CSLOG(CSLOG_ERROR, "rds", "Cannot create tmpfile?\n");
      return false;
    }
    is_complete = catalog.update(body, result, accepted);
  }
  for (const auto step : {&Catalog::expire, &Catalog::rebuild_index, &Catalog::list_unclassified})
    is_complete = (catalog.*step)() && is_complete;
  return is_complete;
}

void warn_of_shell_characters(std::string_view path) {
  if (!std::all_of(path.begin(), path.end(), ascii::is_plain_to_shell))
    CSLOG(CSLOG_WARNING, "rds", "Characters in %s mean something to the shell: %s\n", catalog_key, path.data());
}

const char *source_of(const Request *rq) {
  const char *source = host_param_find("from", rq->headers);
  if (source == nullptr) source = host_param_find("user-agent", rq->headers);
  return source != nullptr ? shown(source) : "Unknown-Source";
}

}  // namespace

int32_t rds_rd_response(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) noexcept {
  QX_REQUIRE(header->type == RDM_RD_RESPONSE || header->type == RDM_RD_DELETE_RESPONSE, "rds", "state");
  const char *database = csid_findval(catalog_key, header->csid);
  if (database == nullptr) {
    static constexpr char text[] = "Failed to import RDs: RDS: No CSID?";
    CSLOG(CSLOG_ERROR, "rds", "Require '%s' for <CSID:%s>\n", catalog_key, LogText(shown(header->csid)).c_str());
    return rds_status_ok(text, text, header, body, response, sn, rq);
  }
  warn_of_shell_characters(database);
  const Catalog catalog{database, format_text("%s.idx", database)};
  if (!catalog.index || !ensure_file(body)) {
    CSLOG(CSLOG_ERROR, "rds", "Cannot save RDs to tmpfile?\n");
    return rds_status_ok(import_failed, import_failed, header, body, response, sn, rq);
  }
  int accepted = 0;
  const bool is_complete = import_into(catalog, body->filename, accepted);
  const HostText text = format_text("Accepted %d RDs from %s", accepted, source_of(rq));
  if (!text || !is_complete) return rds_status_ok(import_failed, import_failed, header, body, response, sn, rq);
  rdm_log_add(LogText(text.get()).c_str(), nullptr, nullptr, sn, rq);
  return rds_status_ok(text.get(), nullptr, header, body, response, sn, rq);
}

int32_t rds_status_ok(const char *text, const char *error_message, rdmhdr *header, csio *, csio *response, Session *,
                      Request *) noexcept {
  csio_reset(response);
  rdm_answer(header, RDM_STATUS_RESPONSE, error_message);
  rdmhdr_print(header, response);
  append_text(response, "\n\n");
  append_text(response, text);
  append_text(response, "\n\n");
  csio_finish(response);
  return 0;
}
