// SPDX-License-Identifier: MIT
#include "support/memory_host.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace rdm::support {
namespace {

HostRecord record;

const qxapi_host &posix() { return *qxapi_posix_host(); }

bool refuse_allocation(size_t n) {
  record.largest_allocation = std::max(record.largest_allocation, n);
  return ++record.allocations == record.fail_allocation;
}

void *count_block(void *p) {
  if (p != nullptr) ++record.live_blocks;
  return p;
}

void *counting_alloc(size_t n) { return refuse_allocation(n) ? nullptr : count_block(std::malloc(n)); }

void *counting_realloc(void *p, size_t n) {
  if (refuse_allocation(n)) return nullptr;
  return p == nullptr ? count_block(std::malloc(n)) : std::realloc(p, n);
}

void counting_free(void *p) {
  if (p != nullptr) --record.live_blocks;
  std::free(p);
}

char *counting_strdup(const char *s) {
  char *copy = static_cast<char *>(counting_alloc(std::strlen(s) + 1));
  return copy == nullptr ? nullptr : std::strcpy(copy, s);
}

void set_status(Session *, Request *rq, int status, const char *reason) {
  record.status = status;
  record.reason = reason == nullptr ? "" : reason;
  if (rq != nullptr) rq->status = status;
}

int start_response(Session *, Request *) {
  ++record.responses_started;
  return HOST_DONE;
}

int input_next(host_input *input, int n) { return record.fail_input ? -1 : posix().input_next(input, n); }

int net_write(host_net *, const void *bytes, int32_t count) {
  if (record.fail_net_write) return -1;
  record.sent.append(static_cast<const char *>(bytes), static_cast<size_t>(count));
  return count;
}

int64_t buffer_send(host_buffer *reader, host_net *) {
  if (record.fail_net_write) return -1;
  // host_getline returns only lines; tests send whole files, so read from the reader's descriptor.
  const host_fd fd = *reinterpret_cast<host_fd *>(reader);
  int64_t total = 0;
  char block[4096];
  for (int32_t n = 0; (n = posix().read(fd, block, sizeof block)) > 0; total += n)
    record.sent.append(block, static_cast<size_t>(n));
  return total;
}

// A reader is a counted block that begins with its descriptor.
struct Reader {
  host_fd fd;
  host_buffer *inner;
};

host_buffer *buffer_open(host_fd fd, int size) {
  host_buffer *inner = posix().buffer_open(fd, size);
  if (inner == nullptr) return nullptr;
  return reinterpret_cast<host_buffer *>(new Reader{fd, inner});
}

int read_line(host_buffer *b, int number, int limit, char *line) {
  return posix().getline(reinterpret_cast<Reader *>(b)->inner, number, limit, line);
}

void buffer_close(host_buffer *b) {
  if (b == nullptr) return;
  auto *reader = reinterpret_cast<Reader *>(b);
  posix().buffer_close(reader->inner);
  delete reader;
}

// Critical sections live as long as the process; this list keeps leak checkers from reporting them.
host_crit *crit_create() {
  static auto &sections = *new std::vector<host_crit *>;
  if (record.fail_crit_create) return nullptr;
  return sections.emplace_back(posix().crit_create());
}
void crit_enter(host_crit *c) {
  posix().crit_enter(c);
  ++record.crit_depth;
}
void crit_exit(host_crit *c) {
  --record.crit_depth;
  posix().crit_exit(c);
}

void register_exit(void (*fn)(void *), void *argument) { record.exits.emplace_back(fn, argument); }

[[gnu::format(printf, 5, 0)]] void report_error(int degree, const char *function, Session *, Request *,
                                                const char *format, va_list arguments) {
  char text[8192];
  std::vsnprintf(text, sizeof text, format, arguments);
  record.reports.push_back(std::to_string(degree) + " " + function + ": " + text);
}

}  // namespace

qxapi_host memory_host() {
  qxapi_host host = posix();
  host.alloc = counting_alloc;
  host.realloc = counting_realloc;
  host.free = counting_free;
  host.strdup = counting_strdup;
  host.set_status = set_status;
  host.start_response = start_response;
  host.input_next = input_next;
  host.net_write = net_write;
  host.buffer_open = buffer_open;
  host.getline = read_line;
  host.buffer_close = buffer_close;
  host.buffer_send = buffer_send;
  host.crit_create = crit_create;
  host.crit_enter = crit_enter;
  host.crit_exit = crit_exit;
  host.register_exit = register_exit;
  host.report_error = report_error;
  return host;
}

void bind_memory_host() {
  record = HostRecord{};
  const qxapi_host host = memory_host();
  qxapi_bind(&host);
}

HostRecord &host_record() { return record; }

HostTest::HostTest() { bind_memory_host(); }
HostTest::~HostTest() {
  EXPECT_EQ(record.live_blocks, 0) << "blocks of the host allocator were not released";
  EXPECT_EQ(record.crit_depth, 0) << "a critical section was not left";
  qxapi_bind(nullptr);
}

Exchange::Exchange(const std::string &method, const std::string &uri, std::string body) : body_(std::move(body)) {
  session.client = host_param_create(3);
  session.input = &input_;
  request.line = host_param_create(5);
  request.headers = host_param_create(7);
  request.response = host_param_create(7);
  request.vars = host_param_create(5);
  input_.data = reinterpret_cast<const unsigned char *>(body_.data());
  input_.size = static_cast<int32_t>(body_.size());
  host_param_add("ip", "192.0.2.7", session.client);
  if (!method.empty()) host_param_add("method", method.c_str(), request.line);
  if (!uri.empty()) host_param_add("uri", uri.c_str(), request.line);
}

Exchange::~Exchange() {
  for (pblock *block : {session.client, request.line, request.headers, request.response, request.vars})
    host_param_free(block);
}

Exchange &Exchange::header(const std::string &name, const std::string &value) {
  host_param_add(name.c_str(), value.c_str(), request.headers);
  return *this;
}

Exchange &Exchange::query(const std::string &text) {
  host_param_add("query", text.c_str(), request.line);
  return *this;
}

std::string Exchange::response(const std::string &name) const {
  const char *value = host_param_find(name.c_str(), request.response);
  return value == nullptr ? "" : value;
}

int Exchange::responses(const std::string &name) const {
  int count = 0;
  std::vector<host_param *> taken;
  while (host_param *entry = host_param_find_entry(name.c_str(), request.response, 1)) {
    taken.push_back(entry);
    ++count;
  }
  for (host_param *entry : taken) {
    host_param_add(entry->name, entry->value, request.response);
    host_param_free_entry(entry);
  }
  return count;
}

std::string Exchange::var(const std::string &name) const {
  const char *value = host_param_find(name.c_str(), request.vars);
  return value == nullptr ? "" : value;
}

}  // namespace rdm::support
