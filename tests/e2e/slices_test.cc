// SPDX-License-Identifier: MIT
/// Answers that the server sends from the database itself: whatever happens to the database meanwhile, a client gets
/// the whole old answer, or its connection breaks.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "dba/guard.h"
#include "dba/index_format.h"
#include "e2e/service.h"
#include "hosts/rdmd/tls_support.h"
#include "support/database.h"
#include "support/gunzip.h"

using namespace rdm;
using namespace std::chrono_literals;

namespace {

using namespace rdm::e2e;
using support::HttpClient;

/// Way is how clients and workers are joined to the server.
struct Way {
  const char *name;
  bool tls;
  const char *workers;
};

void PrintTo(const Way &way, std::ostream *out) { *out << way.name; }

class Slices : public ServiceTest, public ::testing::WithParamInterface<Way> {
 protected:
  static constexpr std::size_t records = 4000;

  static void SetUpTestSuite() { share_large_catalog(records); }

  /// serve serves a copy of the catalog, which tests may change. It is old enough to stay open between requests.
  void serve() {
    for (const char *suffix : {"", ".idx", ".url"})
      std::filesystem::copy_file(catalog("rfc") + suffix, database_ + suffix,
                                 std::filesystem::copy_options::overwrite_existing);
    await_rest(database_);
    await_rest(database_ + ".idx");
    support::write_certificate(directory_.path("cert"), directory_.path("key"));
    // A client takes its answer when a catalog has been made, however long that takes.
    std::vector<std::string> more{
        "--workers", GetParam().workers, "--header-timeout", "60", "--write-timeout", "3600", "--min-send-rate", "0"};
    if (GetParam().tls)
      more.insert(more.end(), {"--tls-listen", "127.0.0.1:0", "--tls-certificate", directory_.path("cert"), "--tls-key",
                               directory_.path("key")});
    start("csid=\"" + rfc + "\"\ncatalog-database=\"" + database_ + "\"\n", more);
    if (GetParam().tls) port_ = last_port();
  }

  /// await_rest waits until the last change of a file is older than the steps in which its file system counts time: no
  /// younger file stays open between requests.
  static void await_rest(const std::string &path) {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    const auto changed = std::chrono::seconds(status.st_ctim.tv_sec) + std::chrono::nanoseconds(status.st_ctim.tv_nsec);
    const auto step = status.st_ctim.tv_nsec == 0 ? 3s : 100ms;
    std::this_thread::sleep_until(std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(changed + step + 10ms)));
  }

  /// last_port returns the port that the server names last: that for TLS.
  int last_port() {
    const std::string errors = server_->errors();
    const std::size_t line = errors.find('\n', errors.rfind("rdmd: listening on "));
    return std::stoi(errors.substr(errors.rfind(':', line) + 1));
  }

  /// client returns a client that takes little at a time.
  std::unique_ptr<HttpClient> client() const {
    if (GetParam().tls) return std::make_unique<support::TlsClient>(port_, 0, "", nullptr, 65536);
    return std::make_unique<HttpClient>(port_, false, 65536);
  }
  /// Answer is one that is on its way: the client has got its head.
  struct Answer {
    std::unique_ptr<HttpClient> client;
    std::string head;
    std::string body() const { return client->receive_rest(); }
  };
  Answer asked(const std::string &fields = "") const {
    Answer answer{client(), ""};
    answer.client->send("GET /rdm/rd-request?ql=gatherer&scope=all HTTP/1.1\r\nHost: h\r\nConnection: close\r\n" +
                        fields + "\r\n");
    answer.head = answer.client->receive_head();
    return answer;
  }
  std::string whole() const { return expected(database_, read_index(database_ + ".idx")); }

  /// expect_broken expects that the answer ends early, and that the server says why and goes on.
  void expect_broken(const Answer &answer, std::size_t whole) {
    EXPECT_NE(answer.head.find("content-length: " + std::to_string(whole) + "\r\n"), std::string::npos) << answer.head;
    EXPECT_LT(answer.body().size(), whole);
    EXPECT_TRUE(server_->await_error("a database was changed or cut"));
    const std::unique_ptr<HttpClient> next = this->client();
    next->send("GET /rdm/status-request HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(next->receive().status, 200);
    const std::string errors = server_->errors();
    EXPECT_EQ(errors.find("a database was changed"), errors.rfind("a database was changed")) << errors;
  }

  /// spilled returns the bytes in files without a name of the process that sends.
  std::int64_t spilled() const {
    const pid_t sender = std::string(GetParam().workers) == "0" ? server_->pid() : server_->front();
    std::int64_t bytes = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(sender) + "/fd")) {
      struct stat status {};
      const bool is_open = ::stat(entry.path().c_str(), &status) == 0;
      if (is_open && S_ISREG(status.st_mode) && status.st_nlink == 0) bytes += status.st_size;
    }
    return bytes;
  }

  void write_index(const std::vector<IndexEntry> &entries) const {
    std::string bytes;
    const auto add = [&bytes](const auto &part) { bytes.append(part.data(), part.size()); };
    add(index_format::encode_header(static_cast<std::uint32_t>(entries.size())));
    for (const IndexEntry &entry : entries) add(index_format::encode({entry.time, 0, entry.number, 0, 0}));
    support::write_file(database_ + ".idx", bytes);
  }

  const std::string database_ = directory_.path("rfc.db");
};

TEST_P(Slices, AnAnswerUnderWayIsThatOfTheOldCatalog) {
  serve();
  const std::string before = whole();
  const Answer answer = asked();
  make_catalog(directory_.path(), "rfc",
               directory_.write("batch", "@FILE { x://new/1\n" + attribute("title", "New") + "}\n"));
  const std::string after = whole();
  EXPECT_NE(after, before);
  EXPECT_EQ(asked().body(), after);
  EXPECT_EQ(answer.body(), before);
}

TEST_P(Slices, ADatabaseThatIsCutBreaksTheAnswer) {
  serve();
  const std::size_t size = whole().size();
  const Answer answer = asked();
  std::filesystem::resize_file(database_, 65536);
  expect_broken(answer, size);
}

TEST_P(Slices, ADatabaseThatIsOverwrittenBreaksTheAnswer) {
  serve();
  const std::size_t size = whole().size();
  const Answer answer = asked();
  support::write_file(database_, std::string(std::filesystem::file_size(database_), '?'));
  expect_broken(answer, size);
}

TEST_P(Slices, AnswersThatAreNotReadTakeNoRoom) {
  serve();
  std::vector<Answer> deaf;
  for (int i = 0; i < 20; ++i) deaf.push_back(asked());
  EXPECT_LT(spilled(), 1 << 20) << "the places of the records, which all share";
  EXPECT_EQ(deaf[7].body(), whole());
}

TEST_P(Slices, AreCompressedForAClientThatWantsThat) {
  serve();
  const Answer answer = asked("Accept-Encoding: gzip\r\n");
  EXPECT_NE(answer.head.find("Content-Encoding: gzip\r\n"), std::string::npos) << answer.head;
  EXPECT_EQ(support::gunzip(answer.body()), whole());
}

/// Records that are stored as they print, others, long, missing and doubled ones, in random order.
TEST_P(Slices, AreMixedWithRecordsThatAreNot) {
  std::mt19937 random(3);
  std::string answer = answer_header("rd-response"), titles = answer;
  std::vector<std::string> stored(600), printed(600), titled(600);
  {
    const DatabasePtr database(dba_open(database_.c_str(), "w"));
    for (std::uint32_t number = 1; number < stored.size(); ++number) {
      const bool is_long = random() % 150 == 0;
      const std::string start = "@FILE { x://" + std::to_string(number) + "\n",
                        title = attribute("title", std::string(100 + random() % 300, 't'));
      titled[number] = start + title + "}\n";
      printed[number] = start + title + attribute("body", std::string(is_long ? 50'000 : random() % 3000, 'x')) + "}\n";
      stored[number] = random() % 150 == 0 ? " " + printed[number] + "\n" : printed[number];
      char key[9];
      std::snprintf(key, sizeof key, "%08x", number);
      if (random() % 150 == 0) printed[number] = titled[number] = "";
      if (!printed[number].empty()) support::put_record(database.get(), key, stored[number]);
    }
  }
  std::vector<IndexEntry> index;
  for (std::uint32_t i = 0; i < 3000; ++i) {
    // Long runs of neighbours, and some jumps.
    const std::uint32_t number = 1 + (i % 500 < 400 ? i : random()) % (static_cast<std::uint32_t>(stored.size()) - 1);
    index.push_back({1000 + i, number});
    answer += printed[number];
    titles += titled[number];
  }
  write_index(index);
  start("csid=\"" + rfc + "\"\ncatalog-database=\"" + database_ + "\"\n", {"--workers", GetParam().workers});
  for (int again = 0; again < 2; ++again)
    for (const auto &[attributes, right] : {std::pair("", answer), {"&view-attributes=title", titles}}) {
      const support::HttpResponse response = get(std::string("/rdm/rd-request?ql=gatherer&scope=all") + attributes);
      EXPECT_EQ(response.field("content-length"), std::to_string(right.size()));
      EXPECT_EQ(response.body == right, true) << attributes << again;
    }
}

INSTANTIATE_TEST_SUITE_P(Ways, Slices,
                         ::testing::Values(Way{"PlainInOneProcess", false, "0"}, Way{"PlainByWorkers", false, "2"},
                                           Way{"TlsInOneProcess", true, "0"}, Way{"TlsByWorkers", true, "2"}),
                         [](const auto &test) { return test.param.name; });

}  // namespace
