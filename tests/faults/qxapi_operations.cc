// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "faults/operations.h"
#include "qxapi/guard.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

bool equals(const char *text, const char *expected) { return text != nullptr && std::strcmp(text, expected) == 0; }

/// File is a file of two lines, open for reading and writing.
struct File {
  support::TemporaryDirectory directory;
  std::string path = directory.write("file", "one\ntwo\n");
  HostFileGuard open{host_open_readwrite(path.c_str())};
};

/// Message is a request with one header.
struct Message {
  PblockPtr headers{host_param_create(3)};
  Session session{};
  Request request{};

  Message() {
    host_param_add("host", "localhost", headers.get());
    request.headers = headers.get();
  }
};

PblockPtr block_of_two() {
  PblockPtr block(host_param_create(3));
  host_param_add("a", "1", block.get());
  host_param_add("b", "2", block.get());
  return block;
}

Verdict alloc(Memory &memory) {
  const HostText block(static_cast<char *>(memory.failing([] { return host_alloc(10); })));
  if (block) std::memset(block.get(), 'x', 10);
  return judge(block != nullptr, !block);
}

/// A block that cannot grow is still there.
Verdict realloc(Memory &memory) {
  HostText block(host_strdup("abc"));
  auto *grown = static_cast<char *>(memory.failing([&] { return host_realloc(block.get(), 1000); }));
  const bool is_whole = equals(grown != nullptr ? grown : block.get(), "abc");
  if (grown != nullptr) static_cast<void>(block.release());
  const HostText owned(grown);
  return judge(is_whole && grown != nullptr, is_whole);
}

Verdict free(Memory &memory) {
  void *block = host_alloc(10);
  memory.failing([&] { host_free(block); });
  return Verdict::right;
}

Verdict strdup(Memory &memory) {
  const HostText copy(memory.failing([] { return host_strdup("text"); }));
  return judge(equals(copy.get(), "text"), !copy);
}

Verdict param_create(Memory &memory) {
  const PblockPtr block(memory.failing([] { return host_param_create(3); }));
  return judge(block && host_param_add("a", "1", block.get()) == 0, !block);
}

Verdict param_free(Memory &memory) {
  pblock *block = block_of_two().release();
  memory.failing([&] { host_param_free(block); });
  return Verdict::right;
}

Verdict param_find(Memory &memory) {
  const PblockPtr block = block_of_two();
  return judge(equals(memory.failing([&] { return host_param_find("b", block.get()); }), "2"), false);
}

Verdict param_find_entry(Memory &memory) {
  const PblockPtr block = block_of_two();
  const ParamPtr entry(memory.failing([&] { return host_param_find_entry("a", block.get(), 1); }));
  return judge(entry && equals(entry->value, "1") && host_param_find("a", block.get()) == nullptr, false);
}

/// What could not be added is not there, and the next one is.
Verdict param_add(Memory &memory) {
  const PblockPtr block = block_of_two();
  const int result = memory.failing([&] { return host_param_add("c", "3", block.get()); });
  const char *added = host_param_find("c", block.get());
  const bool goes_on = host_param_add("d", "4", block.get()) == 0 && equals(host_param_find("d", block.get()), "4");
  return judge(goes_on && result == 0 && equals(added, "3"), goes_on && result == -1 && added == nullptr);
}

Verdict param_free_entry(Memory &memory) {
  const PblockPtr block = block_of_two();
  host_param *entry = host_param_find_entry("a", block.get(), 1);
  memory.failing([&] { host_param_free_entry(entry); });
  return judge(equals(host_param_find("b", block.get()), "2"), false);
}

/// The pairs in front of the one that failed may be there, none behind it.
Verdict param_parse(Memory &memory) {
  const PblockPtr block(host_param_create(3));
  const int pairs = memory.failing([&] { return host_param_parse(R"(a=1 b="2 \"x\"" c=3)", block.get()); });
  static constexpr std::pair<const char *, const char *> expected[] = {{"a", "1"}, {"b", "2 \"x\""}, {"c", "3"}};
  size_t found = 0;
  for (const auto &[name, value] : expected) {
    const char *actual = host_param_find(name, block.get());
    if (actual == nullptr) break;
    if (!equals(actual, value)) return Verdict::wrong;
    ++found;
  }
  return judge(pairs == 3 && found == 3, pairs == -1 && found < 3 && host_param_find("c", block.get()) == nullptr);
}

Verdict request_header(Memory &memory) {
  Message message;
  char *value = nullptr;
  memory.failing([&] { return host_request_header("Host", &value, &message.session, &message.request); });
  return judge(equals(value, "localhost"), false);
}

Verdict input_next(Memory &memory) {
  host_input input{reinterpret_cast<const unsigned char *>("x"), 0, 1, nullptr};
  return judge(memory.failing([&] { return host_input_next(&input, 1); }) == 'x', false);
}

Verdict set_status(Memory &memory) {
  Message message;
  memory.failing([&] { host_set_status(&message.session, &message.request, 403, nullptr); });
  return judge(message.request.status == 403, false);
}

Verdict start_response(Memory &memory) {
  Message message;
  const int started = memory.failing([&] { return host_start_response(&message.session, &message.request); });
  return judge(started == HOST_DONE, false);
}

/// Without a server nobody is at the other end.
Verdict net_write(Memory &memory) {
  return judge(memory.failing([] { return host_net_write(nullptr, "x", 1); }) == -1, false);
}

Verdict buffer_open(Memory &memory) {
  const File file;
  const ReaderPtr reader(memory.failing([&] { return host_buffer_open(file.open.get(), 16); }));
  char line[16];
  return judge(reader && host_getline(reader.get(), 1, sizeof line, line) == 0 && equals(line, "one"), !reader);
}

Verdict getline(Memory &memory) {
  const File file;
  const ReaderPtr reader(host_buffer_open(file.open.get(), 16));
  char line[16];
  const int result = memory.failing([&] { return host_getline(reader.get(), 1, sizeof line, line); });
  return judge(result == 0 && equals(line, "one"), false);
}

Verdict buffer_close(Memory &memory) {
  const File file;
  host_buffer *reader = host_buffer_open(file.open.get(), 16);
  memory.failing([&] { host_buffer_close(reader); });
  return Verdict::right;
}

Verdict buffer_send(Memory &memory) {
  const File file;
  const ReaderPtr reader(host_buffer_open(file.open.get(), 16));
  return judge(memory.failing([&] { return host_buffer_send(reader.get(), nullptr); }) == -1, false);
}

template <host_fd (*open)(const char *)>
Verdict open_file(Memory &memory) {
  const File file;
  return judge(bool(HostFileGuard(memory.failing([&] { return open(file.path.c_str()); }))), false);
}

Verdict read(Memory &memory) {
  const File file;
  char bytes[16] = "";
  const int32_t count = memory.failing([&] { return host_read(file.open.get(), bytes, sizeof bytes); });
  return judge(count == 8 && equals(bytes, "one\ntwo\n"), false);
}

template <int (*put)(host_fd, const void *, int32_t)>
Verdict write_file(Memory &memory) {
  const File file;
  const int result = memory.failing([&] { return put(file.open.get(), "ONE", 3); });
  return judge(result == 1 && support::read_file(file.path) == "ONE\ntwo\n", false);
}

Verdict seek(Memory &memory) {
  const File file;
  return judge(memory.failing([&] { return host_seek(file.open.get(), 0, SEEK_END); }) == 8, false);
}

Verdict close(Memory &memory) {
  File file;
  return judge(memory.failing([&] { return host_close(file.open.release()); }) == 0, false);
}

Verdict stat(Memory &memory) {
  const File file;
  struct stat status {};
  const int result = memory.failing([&] { return host_stat(file.path.c_str(), &status); });
  return judge(result == 0 && status.st_size == 8, false);
}

Verdict unlink(Memory &memory) {
  const File file;
  const int result = memory.failing([&] { return host_unlink(file.path.c_str()); });
  return judge(result == 0 && !support::file_exists(file.path), false);
}

Verdict crit(Memory &memory) {
  host_crit *section = memory.failing([] { return host_crit_create(); });
  if (section == nullptr) return Verdict::refused;
  memory.failing([&] {
    host_crit_enter(section);
    host_crit_exit(section);
  });
  return Verdict::right;
}

/// What is registered is called when the process ends, when the list of exits may have outlived its host's memory.
Verdict register_exit(Memory &memory) {
  memory.failing([] { host_register_exit([](void *) {}, nullptr); });
  return Verdict::right;
}

Verdict report_error(Memory &memory) {
  testing::internal::CaptureStderr();
  memory.failing([] { host_report_error(0, "function", nullptr, nullptr, "%d", 7); });
  return judge(testing::internal::GetCapturedStderr() == "failure function: 7\n", false);
}

Verdict last_error_text(Memory &memory) {
  errno = ENOENT;
  return judge(equals(memory.failing([] { return host_last_error_text(); }), "No such file or directory"), false);
}

Verdict format(Memory &memory) {
  char text[16];
  const int length = memory.failing([&] { return host_format(text, sizeof text, "%s-%d", "a", 7); });
  return judge(length == 3 && equals(text, "a-7"), false);
}

Verdict format_time(Memory &memory) {
  char text[16];
  struct tm time {};
  time.tm_mday = 1;
  const int length = memory.failing([&] { return host_format_time(text, sizeof text, "%d %b", &time); });
  return judge(length == 6 && equals(text, "01 Jan"), false);
}

Verdict itoa(Memory &memory) {
  char text[21];
  memory.failing([&] { return host_itoa(INT64_MIN, text); });
  return judge(equals(text, "-9223372036854775808"), false);
}

Verdict gmtime(Memory &memory) {
  const time_t start = 0;
  struct tm time {};
  return judge(memory.failing([&] { return host_gmtime(&start, &time); }) == &time && time.tm_year == 70, false);
}

Verdict unescape(Memory &memory) {
  char text[] = "a%20b";
  memory.failing([&] { host_unescape(text); });
  return judge(equals(text, "a b"), false);
}

Verdict thread_id(Memory &memory) {
  return judge(memory.failing([] { return host_thread_id(); }) >= 0, false);
}

/// Programs without a server go back to the POSIX host; the next run binds its own table again.
Verdict bind(Memory &memory) {
  memory.failing([] { qxapi_bind(nullptr); });
  const HostText block(host_strdup("text"));
  return judge(equals(block.get(), "text"), false);
}

Verdict posix_host(Memory &memory) {
  return judge(memory.failing([] { return qxapi_posix_host(); })->version == QXAPI_VERSION, false);
}

}  // namespace

std::vector<Operation> qxapi_operations() {
  return {
      {"host_alloc", Need::reported, alloc},
      {"host_realloc", Need::reported, realloc},
      {"host_free", Need::none, free},
      {"host_strdup", Need::reported, strdup},
      {"host_param_create", Need::reported, param_create},
      {"host_param_free", Need::none, param_free},
      {"host_param_find", Need::none, param_find},
      {"host_param_find_entry", Need::none, param_find_entry},
      {"host_param_add", Need::reported, param_add},
      {"host_param_free_entry", Need::none, param_free_entry},
      {"host_param_parse", Need::reported, param_parse},
      {"host_request_header", Need::none, request_header},
      {"host_input_next", Need::none, input_next},
      {"host_set_status", Need::none, set_status},
      {"host_start_response", Need::none, start_response},
      {"host_net_write", Need::none, net_write},
      {"host_buffer_open", Need::reported, buffer_open},
      {"host_getline", Need::none, getline},
      {"host_buffer_close", Need::none, buffer_close},
      {"host_buffer_send", Need::none, buffer_send},
      {"host_open_read", Need::none, open_file<host_open_read>},
      {"host_open_write", Need::none, open_file<host_open_write>},
      {"host_open_append", Need::none, open_file<host_open_append>},
      {"host_open_readwrite", Need::none, open_file<host_open_readwrite>},
      {"host_read", Need::none, read},
      {"host_write", Need::none, write_file<host_write>},
      {"host_write_log", Need::none, write_file<host_write_log>},
      {"host_seek", Need::none, seek},
      {"host_close", Need::none, close},
      {"host_stat", Need::none, stat},
      {"host_unlink", Need::none, unlink},
      {"host_crit_create host_crit_enter host_crit_exit", Need::reported, crit},
      {"host_register_exit", Need::none, register_exit},
      {"host_report_error", Need::none, report_error},
      {"host_last_error_text", Need::none, last_error_text},
      {"host_format", Need::none, format},
      {"host_format_time", Need::none, format_time},
      {"host_itoa", Need::none, itoa},
      {"host_gmtime", Need::none, gmtime},
      {"host_unescape", Need::none, unescape},
      {"host_thread_id", Need::none, thread_id},
      {"qxapi_bind", Need::none, bind},
      {"qxapi_posix_host", Need::none, posix_host},
  };
}

}  // namespace rdm::faults
