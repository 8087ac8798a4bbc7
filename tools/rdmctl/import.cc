// SPDX-License-Identifier: MIT
#include "tools/rdmctl/import.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <ostream>

#include "catalog/os/error.h"
#include "catalog/os/lock.h"
#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_stream.h"
#include "qxapi/ascii.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "qxapi/words.h"
#include "service/csid.h"
#include "service/message.h"
#include "tools/rdmctl/deletion.h"
#include "tools/rdmctl/log_owner.h"
#include "tools/rdmctl/outcome.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/service.h"
#include "tools/rdmctl/supervisor.h"
#include "tools/rdmctl/temporary_directory.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;
using catalog::SoifStream;
using catalog::system_failure;

constexpr uint32_t body_memory = 32768;
constexpr std::string_view message_start = "@RDMHEADER";
constexpr int64_t longest_header = 65536;

/// Submission is a file as the request of a gatherer.
struct Submission {
  std::string name;
  CsioPtr body = make_csio(body_memory);
  RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
};

HostFileGuard open_input(const std::string &name) {
  if (name == "-") return HostFileGuard(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  return HostFileGuard(host_open_read(name.c_str()));
}

/// read_body reads a file up to the end of the block in which `limit` bytes are reached.
void read_body(Submission &submission, int64_t limit) {
  const HostFileGuard file = open_input(submission.name);
  if (!file) throw system_failure("cannot read " + submission.name);
  std::array<char, 65536> block;
  for (int64_t total = 0; total < limit;) {
    const int32_t count = host_read(file.get(), block.data(), block.size());
    if (count < 0) throw system_failure("cannot read " + submission.name);
    if (csio_append(submission.body.get(), block.data(), count) != count)
      throw Failure("cannot store " + submission.name + " in the directory for temporary files");
    // After Ctrl-D, another read of a terminal would wait again.
    if (count < static_cast<int32_t>(block.size())) return;
    total += count;
  }
}

/// is_message returns true if the first object of the file is an RDM header. It skips text before the first "@", such
/// as empty lines or a byte order mark; minidba skips it too.
bool is_message(const Submission &submission) {
  std::array<char, longest_header> start;
  csio_rewind(submission.body.get());
  const int32_t count = csio_copy(submission.body.get(), start.data(), start.size());
  csio_rewind(submission.body.get());
  const std::string_view text(start.data(), static_cast<size_t>(std::max(count, 0)));
  const size_t at = std::min(text.find('@'), text.size());
  return ascii::iequals(text.substr(at, message_start.size()), message_start);
}

/// read_header parses the RDM header of a whole message, for its type. The service would import an rd-delete-response
/// as it does an rd-response: it is refused unless `deletes` is true.
void read_header(Submission &submission, bool deletes) {
  if (!is_message(submission)) {
    if (deletes) throw Failure(submission.name + " has no RDM header: --delete takes whole messages only");
    return;
  }
  if (rdmhdr_parse(submission.body.get(), submission.header.get()) != 0)
    throw Failure("the RDM header of " + submission.name + " is malformed");
  const int32_t type = submission.header->type;
  if (type != RDM_RD_RESPONSE && type != RDM_RD_DELETE_RESPONSE)
    throw Failure(submission.name + " is neither an rd-response nor an rd-delete-response");
  if (type == RDM_RD_DELETE_RESPONSE && !deletes)
    throw Failure(submission.name + " is an rd-delete-response: give --delete to delete what it names");
}

void set_text(char *&field, const std::string &text) {
  host_free(field);
  field = host_strdup(text.c_str());
}

Submission read_submission(const std::string &name, const Options &options, int64_t limit = INT64_MAX) {
  Submission submission{name};
  read_body(submission, limit);
  read_header(submission, options.deletes);
  set_text(submission.header->csid, options.csid);
  csio_rewind(submission.body.get());
  return submission;
}

/// check_submissions throws a Failure before anything is imported if a file cannot be read or is of the wrong type. It
/// skips pipes, which can be read only once.
void check_submissions(const Options &options) {
  for (const std::string &name : options.files) {
    const auto status = name == "-" ? std::nullopt : catalog::status_of(name);
    if (name != "-" && (!status || S_ISREG(status->st_mode) || S_ISDIR(status->st_mode)))
      read_submission(name, options, longest_header);
  }
}

/// path_of writes the body of a submission to a file and returns its path, or an empty text for an empty body.
std::string path_of(const Submission &submission) {
  csio_convert2file(submission.body.get());
  return submission.body->filename != nullptr ? submission.body->filename : "";
}

struct Offered {
  int64_t objects = 0;
  int64_t sound = 0;  // descriptions among them
};

/// count_objects counts the objects of a submission without its header.
Offered count_objects(const Submission &submission) {
  const std::string path = path_of(submission);
  if (path.empty()) return {};
  const HostFileGuard file(host_open_read(path.c_str()));
  if (!file) throw system_failure("cannot read " + submission.name);
  SoifStream stream(file.get(), path);
  Offered offered;
  while (const auto item = stream.next()) {
    if (catalog::is_header(*item)) continue;
    ++offered.objects;
    if (catalog::refusal(*item).empty()) ++offered.sound;
  }
  return offered;
}

std::string answer_text(csio *answer) {
  std::string bytes(answer->length, '\0');
  csio_rewind(answer);
  csio_copy(answer, bytes.data(), static_cast<int32_t>(bytes.size()));
  SoifReader reader(bytes);
  reader.next();
  return std::string(trim(std::string_view(bytes).substr(static_cast<size_t>(reader.position())), "\n"));
}

/// accepted returns the number in an "Accepted" answer, or -1 for another answer.
int64_t accepted(std::string_view answer) {
  constexpr std::string_view start = "Accepted ";
  int64_t number = -1;
  if (answer.substr(0, start.size()) == start)
    std::from_chars(answer.data() + start.size(), answer.data() + answer.size(), number);
  return number;
}

/// submit calls the import entry of the service and returns the text of its answer.
std::string submit(Submission &submission, const Options &options) {
  hosts::Exchange exchange;
  exchange.client("ip", "-");
  if (!options.from.empty()) exchange.header("from", options.from);
  const CsioPtr answer = make_csio();
  rds_rd_response(submission.header.get(), submission.body.get(), answer.get(), exchange.session(), exchange.request());
  Service::log(exchange);
  return answer_text(answer.get());
}

/// shortfalls returns messages about an incomplete import; none if it is complete.
std::vector<std::string> shortfalls(int64_t count, int64_t offered, const Outcome &outcome) {
  if (count > 0 && count == offered) return outcome.faults();
  return {std::to_string(std::max<int64_t>(count, 0)) + " of " +
          counted(offered, "description was", "descriptions were") + " accepted"};
}

void say_of(std::ostream &errors, const std::string &name, const std::string &text) {
  errors << "rdmctl: " << escaped(name + ": " + text) << '\n';
}

/// tell writes the answer to a submission: for people its text, as JSON how many descriptions it was carried out for.
void tell(const Options &options, std::ostream &out, const std::string &answer, const Json &result) {
  out << (options.json ? text_of(result) : answer) << std::endl;
}

/// import_descriptions imports a submission and returns its exit status.
int import_descriptions(Submission &submission, const Options &options, std::ostream &out, std::ostream &errors) {
  const Offered offered = count_objects(submission);
  const Outcome outcome(options.csid);
  const std::string answer = submit(submission, options);
  const int64_t count = accepted(answer);
  tell(options, out, answer,
       {{"input", submission.name}, {"answer", answer}, {"accepted", count}, {"offered", offered.objects}});
  const std::vector<std::string> missing = shortfalls(count, offered.objects, outcome);
  for (const std::string &text : missing) say_of(errors, submission.name, text);
  if (missing.empty()) return exit_done;
  const bool has_failed = count <= 0 && offered.sound > 0 && !outcome.database_changed();
  return has_failed ? tools::exit_failure : exit_incomplete;
}

/// log_deletion writes a line to the transaction log, as the service does for an import, and returns its text.
std::string log_deletion(int64_t deleted, const Options &options) {
  hosts::Exchange exchange;
  exchange.client("ip", "-");
  const std::string source = options.from.empty() ? "Unknown-Source" : options.from;
  std::string text = "Deleted " + std::to_string(deleted) + " RDs from " + source;
  rdm_log_add(text.c_str(), nullptr, nullptr, exchange.session(), exchange.request());
  Service::log(exchange);
  return text;
}

/// delete_descriptions deletes the descriptions that an rd-delete-response names, and returns its exit status.
int delete_descriptions(const Submission &submission, const Options &options, std::ostream &out, std::ostream &errors) {
  const Named named = named_in(path_of(submission), submission.name, errors);
  if (named.urls.empty()) {
    say_of(errors, submission.name, "names no descriptions");
    return tools::exit_failure;
  }
  const int64_t deleted = delete_from(csid_findval("catalog-database", options.csid.c_str()), named.urls, errors);
  const auto wanted = static_cast<int64_t>(named.urls.size()) + named.rejected;
  const std::string answer = log_deletion(deleted, options);
  tell(options, out, answer, {{"input", submission.name}, {"answer", answer}, {"deleted", deleted}, {"named", wanted}});
  if (deleted == wanted) return exit_done;
  say_of(errors, submission.name,
         std::to_string(deleted) + " of " + counted(wanted, "description was", "descriptions were") + " deleted");
  return exit_incomplete;
}

void announce_terminal(const std::string &name, std::ostream &errors) {
  if (name == "-" && ::isatty(STDIN_FILENO) != 0)
    errors << "rdmctl: import reads from the terminal; Ctrl-D at the start of a line ends it\n";
}

int import_file(const std::string &name, const Options &options, std::ostream &out, std::ostream &errors) {
  announce_terminal(name, errors);
  Submission submission = read_submission(name, options);
  return submission.header->type == RDM_RD_DELETE_RESPONSE ? delete_descriptions(submission, options, out, errors)
                                                           : import_descriptions(submission, options, out, errors);
}

/// import_files imports all submissions and returns the exit status: exit_failure only if all of them failed.
int import_files(const Options &options, std::ostream &out, std::ostream &errors) {
  check_submissions(options);
  size_t done = 0, failed = 0;
  for (const std::string &name : options.files) {
    const Outcome outcome(options.csid);
    int status = tools::exit_failure;
    try {
      status = import_file(name, options, out, errors);
    } catch (const Failure &failure) {
      errors << "rdmctl: " << escaped(failure.what()) << '\n';
      if (outcome.database_changed()) status = exit_incomplete;
    }
    if (status == exit_done) ++done;
    if (status == tools::exit_failure) ++failed;
  }
  if (done == options.files.size()) return exit_done;
  return failed == options.files.size() ? tools::exit_failure : exit_incomplete;
}

/// remove_leftovers takes the lock of the database, which removes the temporary files of a killed minidba beside it.
void remove_leftovers(const std::string &database) try {
  if (catalog::status_of(catalog::Lock::path_for(database))) catalog::Lock(database, 0);
} catch (const Failure &) {
  // Another writer holds the lock and has removed them.
}

/// report_interruption writes whether the catalog has changed, and returns the exit status.
int report_interruption(int signal, const Outcome &outcome, std::ostream &errors) {
  remove_leftovers(outcome.database());
  errors << "rdmctl: interrupted by SIG" << ::sigabbrev_np(signal) << ": the catalog has "
         << (outcome.database_changed() ? "changed" : "not changed");
  if (outcome.database_changed() && !outcome.index_changed()) errors << ", and its index has not: import again";
  errors << '\n';
  return outcome.database_changed() ? exit_incomplete : tools::exit_failure;
}

/// require_writable throws a SystemFailure if minidba could not change the catalog.
void require_writable(const std::string &database) {
  const std::string directory = catalog::directory_of(database);
  if (::access(directory.c_str(), W_OK | X_OK) != 0)
    throw system_failure("cannot write to the catalog's directory " + directory);
}

}  // namespace

int import(const Options &options, std::ostream &out, std::ostream &errors) {
  become_log_owner(options.config, errors);
  const Service service(options.config, errors);
  Service::require_catalog(options.csid);
  const Outcome outcome(options.csid);
  require_writable(outcome.database());
  const HeldSignals signals;
  const TemporaryDirectory temporary;
  const std::optional<ChildExit> ended = supervise(signals);
  if (!ended) return import_files(options, out, errors);
  return ended->signal != 0 ? report_interruption(ended->signal, outcome, errors) : ended->status;
}

}  // namespace rdm::rdmctl
