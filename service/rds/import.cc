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
#include "service/text.h"

using namespace rdm;

namespace {

constexpr char catalog_key[] = "catalog-database";
constexpr char import_failed[] = "Failed to import RDs";

using SystemText = std::unique_ptr<char, Deleter<std::free>>;

/// temporary_file creates an empty file of a new name, which nobody else can own, in the directory for temporary files.
/// Null when there is no name or no room for it.
SystemText temporary_file(const char *prefix) {
  constexpr int attempts = 16;
  // In a program with privileges tempnam does not look at TMPDIR itself. The loader has removed what its caller set
  // there: what is found comes from the configuration.
  const char *directory = ::getauxval(AT_SECURE) != 0 ? std::getenv("TMPDIR") : nullptr;
  for (int i = 0; i < attempts; ++i) {
    SystemText name(::tempnam(directory, prefix));
    if (!name) return nullptr;
    const HostFileGuard file(::open(name.get(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file) return name;
  }
  return nullptr;
}

/// ResultFile is where a command writes its number; it goes with its scope.
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

  /// number returns the decimal number that the file begins with, 0 when there is none.
  int number() const {
    const StdioPtr file = open_stdio(name_.get());
    char text[64] = {};
    if (!file || std::fread(text, 1, sizeof text - 1, file.get()) == 0) return 0;
    return static_cast<int>(std::strtol(text, nullptr, 10));
  }

 private:
  SystemText name_;
};

/// holds_all returns whether a file has every byte of the body: its buffer does not say when one was lost on the way.
bool holds_all(const csio *body) {
  struct stat status;
  return body->filename != nullptr && host_stat(body->filename, &status) == 0 &&
         static_cast<uint64_t>(status.st_size) == body->length;
}

/// give_empty_file makes an empty file that goes with the body; returns false when there is none.
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

/// ensure_file puts the body into a file and returns whether that has all of it; an empty body gets an empty file.
bool ensure_file(csio *body) {
  const uint32_t length = body->length;
  csio_convert2file(body);
  // A body that was in a file before may have its last bytes still in memory.
  csio_rewind(body);
  // One that has found no file on its way is empty now.
  if (body->length != length) return false;
  return body->filename == nullptr && length == 0 ? give_empty_file(body) : holds_all(body);
}

/// run returns whether there was memory for the command; what becomes of it only the numbers tell that it writes.
bool run(const HostText &command) {
  if (command)
    cs_cli_run(command.get(), nullptr);
  else
    CSLOG(CSLOG_ERROR, "rds", "No memory for a command of the import\n");
  return command != nullptr;
}

/// The catalog that an import works on. The commands go through the shell as they stand. Each step returns false when
/// there was no memory for its command.
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

  /// list_unclassified leaves the list beside the database; a database without a directory in its path has none.
  bool list_unclassified() const {
    const char *slash = std::strrchr(database, '/');
    if (slash == nullptr) return true;
    const HostText list = format_text("%.*s/unclassified", static_cast<int>(slash - database), database);
    if (!list) return run(nullptr);
    host_unlink(list.get());
    return run(format_text("minidba -d %s -i %s unclassified > %s", database, index.get(), list.get()));
  }
};

/// import_into does the four steps of an import; returns false when one of them could not be begun.
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
