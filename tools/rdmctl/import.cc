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
#include "service/csid.h"
#include "service/message.h"
#include "tools/common/escaped.h"
#include "tools/rdmctl/deletion.h"
#include "tools/rdmctl/log_owner.h"
#include "tools/rdmctl/outcome.h"
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

/// Submission is the request that a gatherer would send.
struct Submission {
  std::string name;
  CsioPtr body = make_csio(body_memory);
  RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
};

HostFileGuard open_input(const std::string &name) {
  if (name == "-") return HostFileGuard(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  return HostFileGuard(host_open_read(name.c_str()));
}

/// read_body reads a file, or its first `limit` bytes, a little more at most.
void read_body(Submission &submission, int64_t limit) {
  const HostFileGuard file = open_input(submission.name);
  if (!file) throw system_failure("cannot read " + submission.name);
  std::array<char, 65536> block;
  for (int64_t total = 0; total < limit;) {
    const int32_t count = host_read(file.get(), block.data(), block.size());
    if (count < 0) throw system_failure("cannot read " + submission.name);
    if (csio_append(submission.body.get(), block.data(), count) != count)
      throw Failure("cannot store " + submission.name + " in the directory for temporary files");
    // A terminal ends once: the next read would wait for another Ctrl-D.
    if (count < static_cast<int32_t>(block.size())) return;
    total += count;
  }
}

/// is_message says whether the file is a whole message, with a header of its own in front. What stands before the first
/// object is passed over, as the update does: empty lines, or the mark that some editors put at the beginning.
bool is_message(const Submission &submission) {
  std::array<char, longest_header> start;
  csio_rewind(submission.body.get());
  const int32_t count = csio_copy(submission.body.get(), start.data(), start.size());
  csio_rewind(submission.body.get());
  const std::string_view text(start.data(), static_cast<size_t>(std::max(count, 0)));
  const size_t at = std::min(text.find('@'), text.size());
  return ascii::iequals(text.substr(at, message_start.size()), message_start);
}

/// read_header takes the type of the message from its own header where there is one. The update passes that header
/// over. A delete response would become an update: the service takes both the same way.
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

/// check_deliveries refuses all deliveries for one that cannot be read or is of the wrong kind. What comes through a
/// pipe can be read only once, so that it is looked at when its turn comes.
void check_deliveries(const Options &options) {
  for (const std::string &name : options.files) {
    const auto status = name == "-" ? std::nullopt : catalog::status_of(name);
    if (name != "-" && (!status || S_ISREG(status->st_mode) || S_ISDIR(status->st_mode)))
      read_submission(name, options, longest_header);
  }
}

/// path_of returns the file that the body of a submission is in; empty for an empty body.
std::string path_of(const Submission &submission) {
  csio_convert2file(submission.body.get());
  return submission.body->filename != nullptr ? submission.body->filename : "";
}

struct Offered {
  int64_t objects = 0;
  int64_t sound = 0;  // of them
};

/// count_objects returns how many descriptions are delivered. The body then is in a file.
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

std::string text_of(csio *answer) {
  std::string bytes(answer->length, '\0');
  csio_rewind(answer);
  csio_copy(answer, bytes.data(), static_cast<int32_t>(bytes.size()));
  SoifReader reader(bytes);
  reader.next();
  const std::string text = bytes.substr(static_cast<size_t>(reader.position()));
  const size_t first = text.find_first_not_of('\n');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of('\n') - first + 1);
}

/// accepted returns the number in an answer of success, -1 for another answer.
int64_t accepted(std::string_view answer) {
  constexpr std::string_view start = "Accepted ";
  int64_t number = -1;
  if (answer.substr(0, start.size()) == start)
    std::from_chars(answer.data() + start.size(), answer.data() + answer.size(), number);
  return number;
}

/// submit has the service import a submission and returns the text of its answer.
std::string submit(Submission &submission, const Options &options) {
  hosts::Exchange exchange;
  exchange.client("ip", "-");
  if (!options.from.empty()) exchange.header("from", options.from);
  const CsioPtr answer = make_csio();
  rds_rd_response(submission.header.get(), submission.body.get(), answer.get(), exchange.session(), exchange.request());
  Service::log(exchange);
  return text_of(answer.get());
}

/// shortfalls returns what is missing of an import, in words.
std::vector<std::string> shortfalls(int64_t count, int64_t offered, const Outcome &outcome) {
  if (count > 0 && count == offered) return outcome.faults();
  return {std::to_string(std::max<int64_t>(count, 0)) + " of " + std::to_string(offered) +
          " descriptions were accepted"};
}

void say(std::ostream &errors, const std::string &name, const std::string &text) {
  errors << "rdmctl: " << tools::escaped(name + ": " + text) << '\n';
}

/// import_descriptions returns the exit status that the submission alone would have.
int import_descriptions(Submission &submission, const Options &options, std::ostream &out, std::ostream &errors) {
  const Offered offered = count_objects(submission);
  const Outcome outcome(options.csid);
  const std::string answer = submit(submission, options);
  out << answer << std::endl;
  const int64_t count = accepted(answer);
  const std::vector<std::string> missing = shortfalls(count, offered.objects, outcome);
  for (const std::string &text : missing) say(errors, submission.name, text);
  if (missing.empty()) return exit_done;
  const bool has_failed = count <= 0 && offered.sound > 0 && !outcome.database_changed();
  return has_failed ? tools::exit_failure : exit_incomplete;
}

/// log_deletion leaves a line in the transaction log like that of an import.
std::string log_deletion(int64_t deleted, const Options &options) {
  hosts::Exchange exchange;
  exchange.client("ip", "-");
  const std::string source = options.from.empty() ? "Unknown-Source" : options.from;
  std::string text = "Deleted " + std::to_string(deleted) + " RDs from " + source;
  rdm_log_add(text.c_str(), nullptr, nullptr, exchange.session(), exchange.request());
  Service::log(exchange);
  return text;
}

/// delete_descriptions does what a delete response means; returns as import_descriptions does.
int delete_descriptions(const Submission &submission, const Options &options, std::ostream &out, std::ostream &errors) {
  const Named named = named_in(path_of(submission), submission.name, errors);
  if (named.urls.empty()) {
    say(errors, submission.name, "names no descriptions");
    return tools::exit_failure;
  }
  const int64_t deleted = delete_from(csid_findval("catalog-database", options.csid.c_str()), named.urls, errors);
  out << log_deletion(deleted, options) << std::endl;
  const auto wanted = static_cast<int64_t>(named.urls.size()) + named.rejected;
  if (deleted == wanted) return exit_done;
  say(errors, submission.name,
      std::to_string(deleted) + " of " + std::to_string(wanted) + " descriptions were deleted");
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

/// import_files returns the exit status of all deliveries: 2 only when none of them has done anything.
int import_files(const Options &options, std::ostream &out, std::ostream &errors) {
  check_deliveries(options);
  size_t done = 0, failed = 0;
  for (const std::string &name : options.files) {
    const Outcome outcome(options.csid);
    int status = tools::exit_failure;
    try {
      status = import_file(name, options, out, errors);
    } catch (const Failure &failure) {
      errors << "rdmctl: " << tools::escaped(failure.what()) << '\n';
      if (outcome.database_changed()) status = exit_incomplete;
    }
    if (status == exit_done) ++done;
    if (status == tools::exit_failure) ++failed;
  }
  if (done == options.files.size()) return exit_done;
  return failed == options.files.size() ? tools::exit_failure : exit_incomplete;
}

/// remove_leftovers removes what a minidba that was ended has left beside the database: whoever gets the lock does so.
void remove_leftovers(const std::string &database) try {
  if (catalog::status_of(catalog::Lock::path_for(database))) catalog::Lock(database, 0);
} catch (const Failure &) {
  // Another writer is at work, and has removed them.
}

/// report_interruption says what has become of the catalog, and returns the exit status.
int report_interruption(int signal, const Outcome &outcome, std::ostream &errors) {
  remove_leftovers(outcome.database());
  errors << "rdmctl: interrupted by SIG" << ::sigabbrev_np(signal) << ": the catalog has "
         << (outcome.database_changed() ? "changed" : "not changed");
  if (outcome.database_changed() && !outcome.index_changed()) errors << ", and its index has not: import again";
  errors << '\n';
  return outcome.database_changed() ? exit_incomplete : tools::exit_failure;
}

/// require_writable refuses a catalog that minidba could not change.
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
  const std::optional<Ended> ended = supervise(signals);
  if (!ended) return import_files(options, out, errors);
  return ended->signal != 0 ? report_interruption(ended->signal, outcome, errors) : ended->status;
}

}  // namespace rdm::rdmctl
