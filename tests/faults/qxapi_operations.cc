// SPDX-License-Identifier: MIT
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <qxapi/slice.h>

#include "faults/operations.h"
#include "qxapi/guard.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

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

template <host_fd (*open)(const char *)>
bool open_file(Memory &memory) {
  const File file;
  return bool(HostFileGuard(memory.failing([&] { return open(file.path.c_str()); })));
}

constexpr Operation qxapi_scenarios[] = {
    {"host_alloc", Need::reported,
     [](Memory &memory) {
       const HostText block(static_cast<char *>(memory.failing([] { return host_alloc(10); })));
       if (block) std::memset(block.get(), 'x', 10);
       return judge(block != nullptr, !block);
     }},
    // A block that cannot grow is unchanged.
    {"host_realloc", Need::reported,
     [](Memory &memory) {
       HostText block(host_strdup("abc"));
       auto *grown = static_cast<char *>(memory.failing([&] { return host_realloc(block.get(), 1000); }));
       const bool is_whole = equals(grown != nullptr ? grown : block.get(), "abc");
       if (grown != nullptr) static_cast<void>(block.release());
       const HostText owned(grown);
       return judge(is_whole && grown != nullptr, is_whole);
     }},
    {"host_free",
     [](Memory &memory) {
       void *block = host_alloc(10);
       memory.failing([&] { host_free(block); });
       return true;
     }},
    {"host_strdup", Need::reported,
     [](Memory &memory) {
       const HostText copy(memory.failing([] { return host_strdup("text"); }));
       return judge(equals(copy.get(), "text"), !copy);
     }},
    {"host_param_create", Need::reported,
     [](Memory &memory) {
       const PblockPtr block(memory.failing([] { return host_param_create(3); }));
       return judge(block && host_param_add("a", "1", block.get()) == 0, !block);
     }},
    // A pair that could not be taken out stays.
    {"host_param_find_entry", Need::reported,
     [](Memory &memory) {
       const PblockPtr block = block_of_two();
       const ParamPtr entry(memory.failing([&] { return host_param_find_entry("a", block.get(), 1); }));
       const char *left = host_param_find("a", block.get());
       return judge(entry && equals(entry->value, "1") && left == nullptr, !entry && equals(left, "1"));
     }},
    {"host_param_find host_param_free_entry host_param_free",
     [](Memory &memory) {
       pblock *block = block_of_two().release();
       host_param *entry = host_param_find_entry("a", block, 1);
       return memory.failing([&] {
         const bool is_right = equals(host_param_find("b", block), "2");
         host_param_free_entry(entry);
         host_param_free(block);
         return is_right;
       });
     }},
    // A pair that could not be added is missing; the next one is added.
    {"host_param_add", Need::reported,
     [](Memory &memory) {
       const PblockPtr block = block_of_two();
       fill_room(block.get());
       const int result = memory.failing([&] { return host_param_add("c", "3", block.get()); });
       const char *added = host_param_find("c", block.get());
       const bool goes_on =
           host_param_add("d", "4", block.get()) == 0 && equals(host_param_find("d", block.get()), "4");
       return judge(goes_on && result == 0 && equals(added, "3"), goes_on && result == -1 && added == nullptr);
     }},
    // Pairs before the failed one may be there, later ones are not.
    {"host_param_parse", Need::reported,
     [](Memory &memory) {
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
     }},
    // The POSIX host has no connection to write to.
    {"host_request_header host_input_next host_set_status host_start_response host_net_write",
     [](Memory &memory) {
       Message message;
       host_input input{reinterpret_cast<const unsigned char *>("x"), 0, 1, nullptr};
       char *value = nullptr;
       return memory.failing([&] {
         host_request_header("Host", &value, &message.session, &message.request);
         host_set_status(&message.session, &message.request, 403, nullptr);
         return equals(value, "localhost") && host_input_next(&input, 1) == 'x' && message.request.status == 403 &&
                host_start_response(&message.session, &message.request) == HOST_DONE &&
                host_net_write(nullptr, "x", 1) == -1;
       });
     }},
    {"host_buffer_open", Need::reported,
     [](Memory &memory) {
       const File file;
       const ReaderPtr reader(memory.failing([&] { return host_buffer_open(file.open.get(), 16); }));
       char line[16];
       return judge(reader && host_getline(reader.get(), 1, sizeof line, line) == 0 && equals(line, "one"), !reader);
     }},
    {"host_getline host_buffer_send host_buffer_close",
     [](Memory &memory) {
       const File file;
       host_buffer *reader = host_buffer_open(file.open.get(), 16);
       char line[16];
       return memory.failing([&] {
         const bool is_right = host_getline(reader, 1, sizeof line, line) == 0 && equals(line, "one") &&
                               host_buffer_send(reader, nullptr) == -1;
         host_buffer_close(reader);
         return is_right;
       });
     }},
    {"host_open_read", open_file<host_open_read>},
    {"host_open_write", open_file<host_open_write>},
    {"host_open_append", open_file<host_open_append>},
    {"host_open_readwrite", open_file<host_open_readwrite>},
    {"host_read host_write host_write_log host_seek host_close host_stat host_unlink",
     [](Memory &memory) {
       File file;
       char bytes[16] = "";
       struct stat status {};
       return memory.failing([&] {
         const host_fd fd = file.open.get();
         bool is_right =
             host_read(fd, bytes, sizeof bytes) == 8 && equals(bytes, "one\ntwo\n") && host_seek(fd, 0, SEEK_SET) == 0;
         is_right = is_right && host_write(fd, "ONE", 3) == 1 && host_write_log(fd, "\nTWO", 4) == 1;
         is_right = is_right && support::read_file(file.path) == "ONE\nTWO\n" &&
                    host_stat(file.path.c_str(), &status) == 0 && status.st_size == 8;
         return host_close(file.open.release()) == 0 && host_unlink(file.path.c_str()) == 0 && is_right &&
                !support::file_exists(file.path);
       });
     }},
    {"host_crit_create host_crit_enter host_crit_exit", Need::reported,
     [](Memory &memory) {
       host_crit *section = memory.failing([] { return host_crit_create(); });
       if (section == nullptr) return Verdict::refused;
       memory.failing([&] {
         host_crit_enter(section);
         host_crit_exit(section);
       });
       return Verdict::right;
     }},
    // The exit function runs at the end of the process, when the list of exits may outlive its host's memory.
    {"host_register_exit",
     [](Memory &memory) {
       memory.failing([] { host_register_exit([](void *) {}, nullptr); });
       return true;
     }},
    {"host_report_error",
     [](Memory &memory) {
       testing::internal::CaptureStderr();
       memory.failing([] { host_report_error(0, "function", nullptr, nullptr, "%d", 7); });
       return testing::internal::GetCapturedStderr() == "failure function: 7\n";
     }},
    {"host_format host_format_time host_itoa host_gmtime host_unescape host_last_error_text host_thread_id",
     [](Memory &memory) {
       char formatted[16], formatted_time[16], number[21], escaped[] = "a%20b";
       const time_t start = 0;
       struct tm time {};
       return memory.failing([&] {
         host_itoa(INT64_MIN, number);
         host_unescape(escaped);
         errno = ENOENT;
         return host_format(formatted, sizeof formatted, "%s-%d", "a", 7) == 3 && equals(formatted, "a-7") &&
                host_gmtime(&start, &time) == &time && time.tm_year == 70 &&
                host_format_time(formatted_time, sizeof formatted_time, "%d %b", &time) == 6 &&
                equals(formatted_time, "01 Jan") && equals(number, "-9223372036854775808") && equals(escaped, "a b") &&
                equals(host_last_error_text(), "No such file or directory") && host_thread_id() >= 0;
       });
     }},
    // qxapi_bind(nullptr) restores the POSIX host; the next run binds its own table again.
    {"qxapi_bind",
     [](Memory &memory) {
       memory.failing([] { qxapi_bind(nullptr); });
       const HostText block(host_strdup("text"));
       return equals(block.get(), "text");
     }},
    {"qxapi_bind_slices host_sends_slices host_send_slice",
     [](Memory &memory) {
       return memory.failing([] {
         const host_slice slice{-1, -1, 0, 1, 7};
         const bool had_none = host_sends_slices() == 0 && host_send_slice(nullptr, &slice) == -1;
         qxapi_bind_slices([](host_net *, const host_slice *sent) { return sent->length; });
         return had_none && host_sends_slices() == 1 && host_send_slice(nullptr, &slice) == 7;
       });
     }},
    {"qxapi_posix_host",
     [](Memory &memory) { return memory.failing([] { return qxapi_posix_host(); })->version == QXAPI_VERSION; }},
};

}  // namespace

std::vector<Operation> qxapi_operations() { return {std::begin(qxapi_scenarios), std::end(qxapi_scenarios)}; }

}  // namespace rdm::faults
