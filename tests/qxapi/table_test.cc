// SPDX-License-Identifier: MIT
#include <concepts>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

namespace {

// The arguments of a wrapper must arrive at its table entry, and the entry's result must come back.
std::string arrived;  // "name argument argument ..."

std::string show(const void *p) {
  char text[32];
  std::snprintf(text, sizeof text, "%p", p);
  return text;
}
std::string show(const char *s) { return s; }
std::string show(std::integral auto n) { return std::to_string(n); }

template <typename... Arguments>
std::string call_text(const char *name, Arguments... arguments) {
  std::string text = name;
  ((text += " " + show(arguments)), ...);
  return text;
}

template <typename... Arguments>
void note(const char *name, Arguments... arguments) {
  arrived = call_text(name, arguments...);
}

// Distinct objects to pass and to return; their content is not used.
char objects[16][8];
template <typename T>
T *object(int i) {
  return reinterpret_cast<T *>(objects[i]);
}
void exit_function(void *) {}

qxapi_host fake_host() {
  qxapi_host h{};
  h.version = QXAPI_VERSION;
  h.alloc = [](size_t n) { return note("alloc", n), object<void>(1); };
  h.realloc = [](void *p, size_t n) { return note("realloc", static_cast<const void *>(p), n), object<void>(2); };
  h.free = [](void *p) { note("free", static_cast<const void *>(p)); };
  h.strdup = [](const char *s) { return note("strdup", s), object<char>(3); };
  h.param_create = [](int slots) { return note("param_create", slots), object<pblock>(4); };
  h.param_free = [](pblock *b) { note("param_free", static_cast<const void *>(b)); };
  h.param_find = [](const char *name, const pblock *b) {
    return note("param_find", name, static_cast<const void *>(b)), object<char>(5);
  };
  h.param_find_entry = [](const char *name, pblock *b, int remove) {
    return note("param_find_entry", name, static_cast<const void *>(b), remove), object<host_param>(6);
  };
  h.param_add = [](const char *name, const char *value, pblock *b) {
    return note("param_add", name, value, static_cast<const void *>(b)), 11;
  };
  h.param_free_entry = [](host_param *e) { note("param_free_entry", static_cast<const void *>(e)); };
  h.param_parse = [](const char *line, pblock *b) {
    return note("param_parse", line, static_cast<const void *>(b)), 12;
  };
  h.request_header = [](const char *name, char **value, Session *sn, Request *rq) {
    note("request_header", name, static_cast<const void *>(sn), static_cast<const void *>(rq));
    *value = object<char>(7);
    return 13;
  };
  h.input_next = [](host_input *in, int n) { return note("input_next", static_cast<const void *>(in), n), 14; };
  h.set_status = [](Session *sn, Request *rq, int status, const char *reason) {
    note("set_status", static_cast<const void *>(sn), static_cast<const void *>(rq), status, reason);
  };
  h.start_response = [](Session *sn, Request *rq) {
    return note("start_response", static_cast<const void *>(sn), static_cast<const void *>(rq)), 15;
  };
  h.net_write = [](host_net *socket, const void *bytes, int32_t count) {
    return note("net_write", static_cast<const void *>(socket), bytes, count), 16;
  };
  h.buffer_open = [](host_fd fd, int size) { return note("buffer_open", fd, size), object<host_buffer>(8); };
  h.getline = [](host_buffer *b, int number, int limit, char *line) {
    return note("getline", static_cast<const void *>(b), number, limit, static_cast<const void *>(line)), 17;
  };
  h.buffer_close = [](host_buffer *b) { note("buffer_close", static_cast<const void *>(b)); };
  h.buffer_send = [](host_buffer *b, host_net *socket) {
    note("buffer_send", static_cast<const void *>(b), static_cast<const void *>(socket));
    return int64_t{5000000018};
  };
  h.open_read = [](const char *path) { return note("open_read", path), 19; };
  h.open_write = [](const char *path) { return note("open_write", path), 20; };
  h.open_append = [](const char *path) { return note("open_append", path), 21; };
  h.open_readwrite = [](const char *path) { return note("open_readwrite", path), 22; };
  h.read = [](host_fd fd, void *buffer, int32_t n) {
    return note("read", fd, static_cast<const void *>(buffer), n), 23;
  };
  h.write = [](host_fd fd, const void *bytes, int32_t n) { return note("write", fd, bytes, n), 24; };
  h.write_log = [](host_fd fd, const void *bytes, int32_t n) { return note("write_log", fd, bytes, n), 25; };
  h.seek = [](host_fd fd, int64_t offset, int whence) {
    note("seek", fd, offset, whence);
    return int64_t{5000000026};
  };
  h.close = [](host_fd fd) { return note("close", fd), 27; };
  h.stat = [](const char *path, struct stat *st) { return note("stat", path, static_cast<const void *>(st)), 28; };
  h.unlink = [](const char *path) { return note("unlink", path), 29; };
  h.crit_create = [] { return note("crit_create"), object<host_crit>(9); };
  h.crit_enter = [](host_crit *c) { note("crit_enter", static_cast<const void *>(c)); };
  h.crit_exit = [](host_crit *c) { note("crit_exit", static_cast<const void *>(c)); };
  h.register_exit = [](void (*fn)(void *), void *argument) {
    EXPECT_EQ(fn, exit_function);
    note("register_exit", static_cast<const void *>(argument));
  };
  h.report_error = [](int degree, const char *function, Session *sn, Request *rq, const char *, va_list arguments) {
    const char *text = va_arg(arguments, const char *);
    const int number = va_arg(arguments, int);
    note("report_error", degree, function, static_cast<const void *>(sn), static_cast<const void *>(rq), text, number);
  };
  h.last_error_text = [] { return note("last_error_text"), object<char>(10); };
  h.format = [](char *buffer, size_t size, const char *, va_list arguments) {
    const char *text = va_arg(arguments, const char *);
    const int number = va_arg(arguments, int);
    return note("format", static_cast<const void *>(buffer), size, text, number), 30;
  };
  h.format_time = [](char *buffer, size_t size, const char *format, const struct tm *tm) {
    note("format_time", static_cast<const void *>(buffer), size, format, static_cast<const void *>(tm));
    return 31;
  };
  h.itoa = [](int64_t n, char *buffer) { return note("itoa", n, static_cast<const void *>(buffer)), 32; };
  h.gmtime = [](const time_t *t, struct tm *out) {
    return note("gmtime", static_cast<const void *>(t), static_cast<const void *>(out)), object<struct tm>(11);
  };
  h.unescape = [](char *text) { note("unescape", static_cast<const void *>(text)); };
  h.thread_id = [] { return note("thread_id"), 33; };
  return h;
}

/// Table restores the POSIX host after each test.
class Table : public ::testing::Test {
 protected:
  ~Table() override { qxapi_bind(nullptr); }
};

const void *p(int i) { return objects[i]; }

TEST_F(Table, EveryOperationReachesItsEntry) {
  const qxapi_host fake = fake_host();
  qxapi_bind(&fake);
  const auto same = [](const void *got, int i) { EXPECT_EQ(got, p(i)) << "returned by " << arrived; };
  const auto number = [](int64_t got, int64_t expected) { EXPECT_EQ(got, expected) << "returned by " << arrived; };
  auto *const block = object<pblock>(0);
  auto *const sn = object<Session>(1);
  auto *const rq = object<Request>(2);
  auto *const reader = object<host_buffer>(3);
  auto *const socket = object<host_net>(4);
  auto *const crit = object<host_crit>(5);
  auto *const text = object<char>(6);
  struct Call {
    std::function<void()> make;
    std::string expected;
  };
  const Call table[] = {
      {[&] { same(host_alloc(101), 1); }, call_text("alloc", 101)},
      {[&] { same(host_realloc(text, 102), 2); }, call_text("realloc", p(6), 102)},
      {[&] { host_free(text); }, call_text("free", p(6))},
      {[&] { same(host_strdup("copied"), 3); }, "strdup copied"},
      {[&] { same(host_param_create(103), 4); }, "param_create 103"},
      {[&] { host_param_free(block); }, call_text("param_free", p(0))},
      {[&] { same(host_param_find("name", block), 5); }, call_text("param_find name", p(0))},
      {[&] { same(host_param_find_entry("name", block, 1), 6); }, call_text("param_find_entry name", p(0), 1)},
      {[&] { number(host_param_add("name", "value", block), 11); }, call_text("param_add name value", p(0))},
      {[&] { host_param_free_entry(object<host_param>(7)); }, call_text("param_free_entry", p(7))},
      {[&] { number(host_param_parse("a=b", block), 12); }, call_text("param_parse a=b", p(0))},
      {[&] {
         char *value = nullptr;
         number(host_request_header("name", &value, sn, rq), 13);
         same(value, 7);
       },
       call_text("request_header name", p(1), p(2))},
      {[&] { number(host_input_next(object<host_input>(8), 104), 14); }, call_text("input_next", p(8), 104)},
      {[&] { host_set_status(sn, rq, 200, "Fine"); }, call_text("set_status", p(1), p(2), 200, "Fine")},
      {[&] { number(host_start_response(sn, rq), 15); }, call_text("start_response", p(1), p(2))},
      {[&] { number(host_net_write(socket, text, 105), 16); }, call_text("net_write", p(4), p(6), 105)},
      {[&] { same(host_buffer_open(5, 106), 8); }, "buffer_open 5 106"},
      {[&] { number(host_getline(reader, 107, 108, text), 17); }, call_text("getline", p(3), 107, 108, p(6))},
      {[&] { host_buffer_close(reader); }, call_text("buffer_close", p(3))},
      {[&] { number(host_buffer_send(reader, socket), 5000000018); }, call_text("buffer_send", p(3), p(4))},
      {[&] { number(host_open_read("r"), 19); }, "open_read r"},
      {[&] { number(host_open_write("w"), 20); }, "open_write w"},
      {[&] { number(host_open_append("a"), 21); }, "open_append a"},
      {[&] { number(host_open_readwrite("rw"), 22); }, "open_readwrite rw"},
      {[&] { number(host_read(6, text, 109), 23); }, call_text("read 6", p(6), 109)},
      {[&] { number(host_write(7, text, 110), 24); }, call_text("write 7", p(6), 110)},
      {[&] { number(host_write_log(8, text, 111), 25); }, call_text("write_log 8", p(6), 111)},
      {[&] { number(host_seek(9, 5000000000, 2), 5000000026); }, "seek 9 5000000000 2"},
      {[&] { number(host_close(10), 27); }, "close 10"},
      {[&] { number(host_stat("s", object<struct stat>(9)), 28); }, call_text("stat s", p(9))},
      {[&] { number(host_unlink("u"), 29); }, "unlink u"},
      {[&] { same(host_crit_create(), 9); }, "crit_create"},
      {[&] { host_crit_enter(crit); }, call_text("crit_enter", p(5))},
      {[&] { host_crit_exit(crit); }, call_text("crit_exit", p(5))},
      {[&] { host_register_exit(exit_function, text); }, call_text("register_exit", p(6))},
      {[&] { host_report_error(1, "fn", sn, rq, "%s %d", "said", 112); },
       call_text("report_error 1 fn", p(1), p(2), "said 112")},
      {[&] { same(host_last_error_text(), 10); }, "last_error_text"},
      {[&] { number(host_format(text, 8, "%s %d", "said", 113), 30); }, call_text("format", p(6), 8, "said 113")},
      {[&] { number(host_format_time(text, 8, "%Y", object<struct tm>(10)), 31); },
       call_text("format_time", p(6), "8 %Y", p(10))},
      {[&] { number(host_itoa(-5000000000, text), 32); }, call_text("itoa -5000000000", p(6))},
      {[&] { same(host_gmtime(object<time_t>(12), object<struct tm>(13)), 11); }, call_text("gmtime", p(12), p(13))},
      {[&] { host_unescape(text); }, call_text("unescape", p(6))},
      {[&] { number(host_thread_id(), 33); }, "thread_id"},
  };
  for (const Call &call : table) {
    arrived.clear();
    call.make();
    EXPECT_EQ(arrived, call.expected);
  }
  constexpr size_t entries = (sizeof(qxapi_host) - offsetof(qxapi_host, alloc)) / sizeof(void *);
  EXPECT_EQ(std::size(table), entries) << "an entry of the table is not called here";
}

TEST_F(Table, PosixHostIsComplete) {
  const qxapi_host *posix = qxapi_posix_host();
  EXPECT_EQ(posix->version, QXAPI_VERSION);
  EXPECT_EQ(posix->version, 0x0300u);
  std::vector<void *> entries((sizeof *posix - offsetof(qxapi_host, alloc)) / sizeof(void *));
  std::memcpy(entries.data(), &posix->alloc, entries.size() * sizeof(void *));
  EXPECT_EQ(std::set<void *>(entries.begin(), entries.end()).size(), entries.size()) << "two entries are the same";
  for (const void *entry : entries) EXPECT_NE(entry, nullptr);
  EXPECT_EQ(qxapi_posix_host(), posix);
}

int answer_seven() { return 7; }

TEST_F(Table, BindCopiesATableOfWhichEntriesMayBeOverriddenAndNullBringsThePosixHostBack) {
  qxapi_host host = *qxapi_posix_host();
  host.thread_id = answer_seven;
  qxapi_bind(&host);
  host.thread_id = nullptr;
  EXPECT_EQ(host_thread_id(), 7);
  char text[21];
  EXPECT_EQ(host_itoa(42, text), 2);
  EXPECT_STREQ(text, "42");
  qxapi_bind(nullptr);
  EXPECT_EQ(host_thread_id(), qxapi_posix_host()->thread_id());
}

TEST_F(Table, BindLeavesThePosixHostAsItIs) {
  const std::string_view posix(reinterpret_cast<const char *>(qxapi_posix_host()), sizeof(qxapi_host));
  const std::string before(posix);
  const qxapi_host fake = fake_host();
  qxapi_bind(&fake);
  EXPECT_EQ(posix, before);
}

}  // namespace
