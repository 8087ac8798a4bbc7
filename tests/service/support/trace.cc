// SPDX-License-Identifier: MIT
#include "service/support/trace.h"

#include <cstdio>
#include <filesystem>

#include "service/rdm.h"
#include "support/memory_host.h"

namespace rdm::support {
namespace {

std::vector<std::string> noted;

const qxapi_host &memory() {
  static const qxapi_host host = memory_host();
  return host;
}

void note(const std::string &call) { noted.push_back(call); }

std::string section(const host_crit *c) {
  if (c == rdm_log_crit) return "log";
  return c == rdm_service_crit ? "service" : "another";
}

pblock *param_create(int slots) {
  note("param_create " + std::to_string(slots));
  return memory().param_create(slots);
}

void set_status(Session *sn, Request *rq, int status, const char *reason) {
  note("set_status " + std::to_string(status) + (reason == nullptr ? "" : " " + std::string(reason)));
  memory().set_status(sn, rq, status, reason);
}

int start_response(Session *sn, Request *rq) {
  note("start_response");
  return memory().start_response(sn, rq);
}

int net_write(host_net *socket, const void *bytes, int32_t count) {
  note("net_write " + std::to_string(count));
  return memory().net_write(socket, bytes, count);
}

int64_t buffer_send(host_buffer *reader, host_net *socket) {
  note("buffer_send");
  return memory().buffer_send(reader, socket);
}

host_fd open_read(const char *path) {
  note("open_read " + std::string(path));
  return memory().open_read(path);
}

host_fd open_write(const char *path) {
  note("open_write");
  return memory().open_write(path);
}

host_fd open_append(const char *path) {
  note("open_append " + std::string(path));
  return memory().open_append(path);
}

host_buffer *buffer_open(host_fd fd, int size) {
  note("buffer_open " + std::to_string(size));
  return memory().buffer_open(fd, size);
}

void buffer_close(host_buffer *b) {
  note("buffer_close");
  memory().buffer_close(b);
}

int write_log(host_fd fd, const void *bytes, int32_t n) {
  note("write_log " + std::string(static_cast<const char *>(bytes), static_cast<size_t>(n)));
  return memory().write_log(fd, bytes, n);
}

host_crit *crit_create() {
  note("crit_create");
  return memory().crit_create();
}

void crit_enter(host_crit *c) {
  note("enter " + section(c));
  memory().crit_enter(c);
}

void crit_exit(host_crit *c) {
  note("exit " + section(c));
  memory().crit_exit(c);
}

void register_exit(void (*fn)(void *), void *argument) {
  note(argument == nullptr ? "register_exit" : "register_exit with an argument");
  memory().register_exit(fn, argument);
}

void report_error(int degree, const char *function, Session *sn, Request *rq, const char *format, va_list arguments) {
  memory().report_error(degree, function, sn, rq, format, arguments);
  note("report_error " + host_record().reports.back());
}

}  // namespace

Trace::Trace() : host(memory_host()) {
  noted.clear();
  host.param_create = param_create;
  host.set_status = set_status;
  host.start_response = start_response;
  host.net_write = net_write;
  host.buffer_open = buffer_open;
  host.buffer_close = buffer_close;
  host.buffer_send = buffer_send;
  host.open_read = open_read;
  host.open_write = open_write;
  host.open_append = open_append;
  host.write_log = write_log;
  host.crit_create = crit_create;
  host.crit_enter = crit_enter;
  host.crit_exit = crit_exit;
  host.register_exit = register_exit;
  host.report_error = report_error;
  qxapi_bind(&host);
}

Trace::~Trace() { qxapi_bind(&memory()); }

const std::vector<std::string> &Trace::calls() const { return noted; }

long open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

}  // namespace rdm::support
