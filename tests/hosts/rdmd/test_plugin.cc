// SPDX-License-Identifier: MIT
/// A plug-in for the tests of the host. The path of a request selects an answer or a misbehaviour. The plug-in writes
/// its calls to a journal.
///
/// Its configuration file holds `journal="FILE"` and optionally `log="FILE"`, which stays open and gets a line for each
/// request; `fail="TEXT"`, with which rdm_init fails with the error TEXT; and `wait="FILE"`, with which rdm_init waits
/// until that file exists.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "qxapi/guard.h"
#include "qxapi/records.h"

using namespace rdm;

namespace {

std::string journal_path;
std::mutex journal_mutex;
host_fd open_log = -1;

void journal(const std::string &line) {
  const std::lock_guard lock(journal_mutex);
  const HostFileGuard file(host_open_append(journal_path.c_str()));
  const std::string text = line + "\n";
  host_write_log(file.get(), text.data(), static_cast<int32_t>(text.size()));
}

std::string value_of(const pblock *block, const char *name) {
  const char *value = host_param_find(name, block);
  return value == nullptr ? "" : value;
}

std::string dump(const char *title, const pblock *block) {
  std::string text;
  for (const host_param *entry = block->first; entry != nullptr; entry = entry->next)
    text += std::string(title) + " " + entry->name + "=" + entry->value + "\n";
  return text;
}

std::string read_input(host_input *input) {
  std::string text;
  while (input->position < input->size) text.push_back(static_cast<char>(input->data[input->position++]));
  return text + "[" + std::to_string(host_input_next(input, 1)) + "]";
}

void start(Session *session, Request *request, std::string_view length) {
  host_param_add("content-type", "text/x-test", request->response);
  if (!length.empty()) host_param_add("content-length", std::string(length).c_str(), request->response);
  host_set_status(session, request, 200, nullptr);
  host_start_response(session, request);
}

int write(Session *session, const std::string &text) {
  return host_net_write(session->socket, text.data(), static_cast<int32_t>(text.size()));
}

int answer(Session *session, Request *request, const std::string &text) {
  start(session, request, std::to_string(text.size()));
  return write(session, text) < 0 ? HOST_ABORT : HOST_DONE;
}

/// pattern returns numbered lines of eight bytes, so that any part of it shows its offset.
std::string pattern(std::size_t size) {
  std::string text(size, '\n');
  for (std::size_t at = 0; at < size; ++at) {
    std::size_t number = at / 8;
    for (std::size_t digit = at % 8; digit < 6; ++digit) number /= 10;
    if (at % 8 != 7) text[at] = static_cast<char>('0' + number % 10);
  }
  return text;
}

std::size_t asked_size(Request *request) { return std::strtoul(value_of(request->line, "query").c_str(), nullptr, 10); }

int echo(Session *session, Request *request) {
  return answer(session, request,
                dump("client", session->client) + dump("line", request->line) + dump("header", request->headers) +
                    "body " + read_input(session->input) + "\n");
}

int nothing(Session *, Request *) { return HOST_DONE; }

/// incomplete makes one open() fail, then sends an answer.
int incomplete(Session *session, Request *request) {
  host_open_write("/nowhere/file");
  return answer(session, request, "as if it were whole");
}

int head_alone(Session *session, Request *request) {
  start(session, request, "");
  return HOST_ABORT;
}

int too_little(Session *session, Request *request) {
  start(session, request, "100");
  return write(session, "ten bytes.") == 10 ? HOST_DONE : HOST_ABORT;
}

int too_much(Session *session, Request *request) {
  start(session, request, "10");
  journal("wrote " + std::to_string(write(session, "ten bytes.and more")));
  return HOST_DONE;
}

int undeclared(Session *session, Request *request) {
  start(session, request, "");
  return write(session, "as long as it is") < 0 ? HOST_ABORT : HOST_DONE;
}

int big(Session *session, Request *request) {
  const std::string text = pattern(asked_size(request));
  start(session, request, std::to_string(text.size()));
  for (std::size_t at = 0; at < text.size(); at += 100'000)
    if (write(session, text.substr(at, 100'000)) < 0) return HOST_ABORT;
  return HOST_DONE;
}

/// big_incomplete answers like big after a resource failure.
int big_incomplete(Session *session, Request *request) {
  host_open_write("/nowhere/file");
  return big(session, request);
}

/// shared_file sends the file named by the query up to the first "&".
int shared_file(Session *session, Request *request) {
  const std::string query = value_of(request->line, "query");
  const std::string path = query.substr(0, query.find('&'));
  struct stat status;
  if (host_stat(path.c_str(), &status) != 0) return HOST_ABORT;
  start(session, request, std::to_string(status.st_size));
  const HostFileGuard file(host_open_read(path.c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), 4096));
  return host_buffer_send(reader.get(), session->socket) == status.st_size ? HOST_DONE : HOST_ABORT;
}

/// whole_file sends the file like shared_file and then removes it.
int whole_file(Session *session, Request *request) {
  const int result = shared_file(session, request);
  host_unlink(value_of(request->line, "query").c_str());
  return result;
}

int split_response(Session *session, Request *request) {
  host_param_add("x-evil", "a\r\nx-injected: yes\r\n\r\nbody", request->response);
  host_param_add("x bad\r\nname", "value", request->response);
  host_param_add("transfer-encoding", "chunked", request->response);
  host_param_add("connection", "upgrade", request->response);
  host_param_add("x-request-id", "of the plug-in", request->response);
  host_param_add("content-length", "2", request->response);
  host_set_status(session, request, 403, "No\r\nx-reason: yes");
  host_start_response(session, request);
  return write(session, "ok") == 2 ? HOST_DONE : HOST_ABORT;
}

void await_existence(const std::string &path) {
  struct stat status;
  while (host_stat(path.c_str(), &status) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

/// slow answers after as many milliseconds as the query says or, if the query is a path, once that file exists.
int slow(Session *session, Request *request) {
  const std::string query = value_of(request->line, "query");
  if (query.starts_with('/'))
    await_existence(query);
  else
    std::this_thread::sleep_for(std::chrono::milliseconds(asked_size(request)));
  return answer(session, request, "slow\n");
}

int crash(Session *, Request *) {
  std::signal(SIGSEGV, SIG_DFL);
  std::raise(SIGSEGV);
  return HOST_ABORT;
}

/// many_files sends the file of the query two hundred times, each through a descriptor of its own.
int many_files(Session *session, Request *request) {
  const std::string path = value_of(request->line, "query");
  struct stat status;
  if (host_stat(path.c_str(), &status) != 0) return HOST_ABORT;
  start(session, request, std::to_string(200 * status.st_size));
  for (int i = 0; i < 200; ++i) {
    const HostFileGuard file(host_open_read(path.c_str()));
    const ReaderPtr reader(host_buffer_open(file.get(), 4096));
    if (host_buffer_send(reader.get(), session->socket) != status.st_size) return HOST_ABORT;
  }
  return HOST_DONE;
}

int fast(Session *session, Request *request) { return answer(session, request, "fast\n"); }

/// print writes the requested number of bytes to standard error, like a diagnostic log without a file.
int print(Session *session, Request *request) {
  std::fprintf(stderr, "%s\n", std::string(asked_size(request), 'p').c_str());
  return answer(session, request, "printed\n");
}

/// environment answers with the variable named by the query.
int environment(Session *session, Request *request) {
  const char *const value = std::getenv(value_of(request->line, "query").c_str());
  return answer(session, request, value != nullptr ? value : "");
}

/// labels leaves the variables that the service leaves.
int labels(Session *session, Request *request) {
  host_param_add("rdm-type", "rd-request", request->vars);
  host_param_add("rdm-csid", "x-catalog://localhost:80/test", request->vars);
  host_param_add("rdm-hits", "3", request->vars);
  return answer(session, request, "labeled\n");
}

int report(Session *session, Request *request) {
  host_report_error(0, "test-plugin", session, request, "%s", "a \"bad\" thing\nhappened\n");
  return answer(session, request, "reported\n");
}

using Handler = int (*)(Session *, Request *);
const std::map<std::string, Handler> handlers = {
    {"/rdm/echo", echo},
    {"/rdm/nothing", nothing},
    {"/rdm/incomplete", incomplete},
    {"/rdm/head-alone", head_alone},
    {"/rdm/too-little", too_little},
    {"/rdm/too-much", too_much},
    {"/rdm/undeclared", undeclared},
    {"/rdm/big", big},
    {"/rdm/big-incomplete", big_incomplete},
    {"/rdm/file", whole_file},
    {"/rdm/shared-file", shared_file},
    {"/rdm/split", split_response},
    {"/rdm/slow", slow},
    {"/rdm/fast", fast},
    {"/rdm/crash", crash},
    {"/rdm/many-files", many_files},
    {"/rdm/rd-request", slow},
    {"/rdm/labels", labels},
    {"/rdm/report", report},
    {"/rdm/print", print},
    {"/rdm/environment", environment},
};

void await_file(const std::string &path) {
  if (path.empty()) return;
  journal("waiting");
  await_existence(path);
}

void on_exit(void *argument) { journal("exit " + std::string(static_cast<const char *>(argument))); }

/// to_argument passes a constant as the argument of an exit function.
void *to_argument(const char *text) { return const_cast<char *>(text); }

}  // namespace

QX_BEGIN

int rdm_init(pblock *pb, Session *, Request *) QX_NOEXCEPT;
int rdm_type(pblock *, Session *, Request *rq) QX_NOEXCEPT;
int rdm_service(pblock *, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_log(pblock *, Session *, Request *rq) QX_NOEXCEPT;

QX_END

int rdm_init(pblock *pb, Session *, Request *) noexcept {
  const HostFileGuard file(host_open_read(value_of(pb, "config").c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), 4096));
  if (!reader) return HOST_ABORT;
  const PblockPtr config(host_param_create(7));
  char line[8192];
  while (host_getline(reader.get(), 0, sizeof line, line) == 0) host_param_parse(line, config.get());
  journal_path = value_of(config.get(), "journal");
  await_file(value_of(config.get(), "wait"));
  const std::string log = value_of(config.get(), "log");
  if (!log.empty()) open_log = host_open_append(log.c_str());
  const std::string failure = value_of(config.get(), "fail");
  if (!failure.empty()) {
    host_param_add("error", failure.c_str(), pb);
    return HOST_ABORT;
  }
  for (const char *name : {"first", "second", "third"}) host_register_exit(on_exit, to_argument(name));
  journal("init");
  return HOST_DONE;
}

int rdm_type(pblock *, Session *, Request *rq) noexcept {
  const std::string uri = value_of(rq->line, "uri");
  journal("type " + uri);
  if (uri == "/rdm/aborted") return HOST_ABORT;
  return uri == "/rdm/declined" ? HOST_NOT_HANDLED : HOST_DONE;
}

int rdm_service(pblock *, Session *sn, Request *rq) noexcept {
  const std::string uri = value_of(rq->line, "uri");
  journal("service " + uri + " on " + std::to_string(host_thread_id()));
  const auto found = handlers.find(uri);
  return found == handlers.end() ? echo(sn, rq) : found->second(sn, rq);
}

int rdm_log(pblock *, Session *, Request *rq) noexcept {
  const std::string uri = value_of(rq->line, "uri"), line = uri + "\n";
  journal("log " + uri);
  if (open_log != -1) host_write_log(open_log, line.data(), static_cast<int32_t>(line.size()));
  return HOST_DONE;
}
