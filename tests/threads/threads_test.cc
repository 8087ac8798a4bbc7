// SPDX-License-Identifier: MIT
/// The plug-in in a host that calls it from many threads, for the thread sanitizer.
#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "faults/requests.h"
#include "libcs/log.h"
#include "service/rdm.h"

using namespace rdm;

namespace {

using faults::Answer;
using faults::SampleRequest;

constexpr int threads = 8;
constexpr int rounds = 12;

void run_on_threads(const std::function<void(int)> &work) {
  std::vector<std::thread> running;
  for (int i = 0; i < threads; ++i) running.emplace_back(work, i);
  for (std::thread &thread : running) thread.join();
}

/// in_turn_from performs some work for every request, starting with another one in each thread.
void in_turn_from(int thread, const std::function<void(const SampleRequest &)> &work) {
  const std::vector<SampleRequest> &requests = faults::requests();
  for (size_t i = 0; i < requests.size(); ++i) work(requests[(i + static_cast<size_t>(thread)) % requests.size()]);
}

class ManyThreads : public testing::Test {
 protected:
  /// transactions returns the number of each line of the transaction log, without the times.
  std::map<std::string, int> transactions() const {
    static const std::regex whole(R"(127\.0\.0\.1 - - \[[^\]]+\] ".*" \S+ \S+)"), time(R"(\[[^\]]+\])");
    std::map<std::string, int> counts;
    for (const std::string &line : lines("transactions")) {
      EXPECT_TRUE(std::regex_match(line, whole)) << line;
      ++counts[std::regex_replace(line, time, "")];
    }
    return counts;
  }
  std::vector<std::string> lines(const std::string &name) const {
    std::istringstream log(support::read_file(directory_.path(name)));
    std::vector<std::string> lines;
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }

  support::TemporaryDirectory directory_;
  const long uncounted_ = 0;
  faults::Service service_{*qxapi_posix_host(), uncounted_,
                           "debug-loglevel=\"1\" debug-logfile=\"" + directory_.path("diagnostics") + "\" logfile=\"" +
                               directory_.path("transactions") + "\""};
};

TEST_F(ManyThreads, GetTheSameAnswersAsASingleThread) {
  const size_t before = lines("diagnostics").size();
  std::map<std::string, Answer> alone;
  for (const SampleRequest &request : faults::requests()) alone.emplace(request.name, service_.serve(request));
  const std::map<std::string, int> once = transactions();
  ASSERT_GE(once.size(), 3u);
  const size_t diagnostics = lines("diagnostics").size() - before;
  ASSERT_GE(diagnostics, 1u);

  std::atomic<int> others = 0;
  run_on_threads([&](int thread) {
    for (int round = 0; round < rounds; ++round)
      in_turn_from(thread, [&](const SampleRequest &request) {
        const Answer answer = service_.serve(request), &right = alone.at(request.name);
        if (answer.body != right.body || answer.outcome != right.outcome || !answer.delimited) ++others;
      });
  });
  EXPECT_EQ(others, 0);
  for (const auto &[line, count] : transactions()) EXPECT_EQ(count, once.at(line) * (threads * rounds + 1)) << line;
  EXPECT_EQ(transactions().size(), once.size());
  EXPECT_EQ(lines("diagnostics").size(), before + diagnostics * (threads * rounds + 1));
}

/// Programs that link the libraries log while requests are served; each line is a single write. Threads whose ids are
/// equal modulo 32 share a slot, so a line may get the other thread's level.
TEST_F(ManyThreads, WriteWholeLinesOfDiagnostics) {
  run_on_threads([&](int thread) {
    for (int round = 0; round < rounds; ++round) {
      in_turn_from(thread, [&](const SampleRequest &request) { service_.serve(request); });
      for (int i = 0; i < 20; ++i) CSLOG(CSLOG_ERROR, "test", "thread %d says %s.\n", thread, "what it says");
    }
  });
  static const std::regex whole(R"(\[\d\d/\w{3}/\d{4}:\d\d:\d\d:\d\d\] +\d+@\d+:.*)"),
      ours(R"(.*: thread \d says what it says\.)");
  int said = 0;
  for (const std::string &line : lines("diagnostics")) {
    EXPECT_TRUE(std::regex_match(line, whole)) << line;
    if (std::regex_match(line, ours)) ++said;
  }
  EXPECT_EQ(said, threads * rounds * 20);
}

}  // namespace
