// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/metrics.h"

#include <array>
#include <chrono>
#include <regex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

using rdmd::AccessEntry;
using rdmd::ErrorLog;
using rdmd::Metrics;
using rdmd::Moment;
using rdmd::RequestResult;
using rdmd::Trouble;
using namespace std::chrono_literals;

constexpr char books[] = "x-catalog://localhost:80/books";

class MetricsOfRequests : public ::testing::Test {
 protected:
  static AccessEntry answered(const std::string &type, const std::string &catalog) {
    AccessEntry entry;
    entry.status = 200;
    entry.for_service = entry.complete = true;
    entry.sent = 0ns;
    entry.labels = {type, catalog, {}};
    return entry;
  }
  std::string text(const Moment &moment = {}) const { return metrics_.text(moment, errors_); }
  /// value returns what follows "NAME " on a line of the text, or an empty string.
  std::string value(const std::string &name, const Moment &moment = {}) const {
    const std::string all = "\n" + text(moment), line = "\n" + name + " ";
    const std::size_t at = all.find(line);
    if (at == std::string::npos) return {};
    const std::size_t begin = at + line.size();
    return all.substr(begin, all.find('\n', begin) - begin);
  }
  std::string requests(const std::string &type, const std::string &catalog, const std::string &outcome) const {
    return value("rdmd_requests_total{type=\"" + type + "\",catalog=\"" + catalog + "\",outcome=\"" + outcome + "\"}");
  }

  support::TemporaryDirectory directory_;
  ErrorLog errors_{directory_.path("errors")};
  Metrics metrics_;
};

TEST_F(MetricsOfRequests, AreCountedByTypeCatalogAndOutcome) {
  metrics_.set_catalogs({books, "other"});
  metrics_.count(answered("rd-request", books));
  metrics_.count(answered("rd-request", books));
  metrics_.count(answered("status-request", "other"));
  EXPECT_EQ(requests("rd-request", books, "answered"), "2");
  EXPECT_EQ(requests("status-request", "other", "answered"), "1");
  EXPECT_EQ(requests("status-request", books, "answered"), "") << "never seen";
}

TEST_F(MetricsOfRequests, NoTextOfAClientBecomesALabel) {
  metrics_.set_catalogs({books});
  metrics_.count(answered("evil-request", "evil"));
  metrics_.count(answered("", ""));
  AccessEntry http = answered("rd-request", "evil");
  http.for_service = false;
  metrics_.count(http);
  EXPECT_EQ(requests("unknown", "unknown", "answered"), "2");
  EXPECT_EQ(requests("http", "unknown", "answered"), "1");
  EXPECT_EQ(text().find("evil"), std::string::npos);
}

TEST_F(MetricsOfRequests, TheLabelsAreTheConfiguredCatalogs) {
  metrics_.count(answered("rd-request", books));
  metrics_.set_catalogs({books, "other"});
  metrics_.count(answered("rd-request", books));
  metrics_.set_catalogs({books, "new"});
  EXPECT_EQ(requests("rd-request", "unknown", "answered"), "1");
  EXPECT_EQ(requests("rd-request", books, "answered"), "1") << "a catalog that stays keeps its numbers";
  metrics_.set_catalogs({});
  EXPECT_EQ(requests("rd-request", books, "answered"), "");
}

struct ResultRow {
  bool complete, begun;
  int status;
  RequestResult result;
};

TEST(RequestResults, FollowFromStatusAndEnd) {
  const ResultRow rows[] = {
      {true, true, 200, RequestResult::answered},    {true, true, 304, RequestResult::answered},
      {true, true, 404, RequestResult::not_found},   {true, true, 400, RequestResult::refused},
      {true, true, 431, RequestResult::refused},     {true, true, 403, RequestResult::refused},
      {true, true, 500, RequestResult::failed},      {true, true, 599, RequestResult::failed},
      {true, true, 503, RequestResult::unavailable}, {false, true, 200, RequestResult::cut},
      {false, true, 503, RequestResult::cut},        {false, false, 503, RequestResult::gone},
      {false, false, 400, RequestResult::gone},
  };
  for (const ResultRow &row : rows) {
    AccessEntry entry;
    entry.complete = row.complete;
    entry.status = row.status;
    if (row.begun) entry.sent = 1ns;
    EXPECT_EQ(rdmd::result_of(entry), row.result) << row.status;
  }
}

TEST_F(MetricsOfRequests, DescriptionsAndBytesAreAddedUp) {
  AccessEntry entry = answered("rd-request", books);
  entry.labels.hits = 12;
  entry.bytes = 5'000'000'000;
  metrics_.count(entry);
  metrics_.count(entry);
  entry.complete = false;
  metrics_.count(entry);
  EXPECT_EQ(value("rdmd_descriptions_sent_total"), "24") << "an answer that was cut off sent an unknown number";
  EXPECT_EQ(value("rdmd_body_bytes_sent_total"), "15000000000");
}

TEST_F(MetricsOfRequests, TimesAreInCumulativeRanges) {
  AccessEntry entry = answered("rd-request", books);
  entry.sent.reset();
  for (const auto time : {-1ns, 0ns, 100'000ns, 100'001ns, 59'000'000'000ns, 61'000'000'000ns}) {
    entry.served = time;
    metrics_.count(entry);
  }
  EXPECT_EQ(value("rdmd_service_seconds_bucket{le=\"0.0001\"}"), "3");
  EXPECT_EQ(value("rdmd_service_seconds_bucket{le=\"0.00025\"}"), "4");
  EXPECT_EQ(value("rdmd_service_seconds_bucket{le=\"30\"}"), "4");
  EXPECT_EQ(value("rdmd_service_seconds_bucket{le=\"60\"}"), "5");
  EXPECT_EQ(value("rdmd_service_seconds_bucket{le=\"+Inf\"}"), "6");
  EXPECT_EQ(value("rdmd_service_seconds_count"), "6");
  EXPECT_EQ(value("rdmd_service_seconds_sum"), "120.000200001");
  EXPECT_EQ(value("rdmd_queue_seconds_count"), "0");
  EXPECT_EQ(value("rdmd_sending_seconds_count"), "0");
}

TEST_F(MetricsOfRequests, EachTroubleIsALabel) {
  for (std::size_t i = 0; i < rdmd::trouble_kinds; ++i) {
    const auto kind = static_cast<Trouble>(i);
    for (std::size_t n = 0; n < i; ++n) errors_.trouble(kind, "192.0.2.7");
    EXPECT_EQ(value("rdmd_limits_hit_total{kind=\"" + std::string(rdmd::trouble_name(kind)) + "\"}"),
              std::to_string(i));
  }
}

TEST_F(MetricsOfRequests, TheMomentIsShown) {
  Moment moment;
  moment.connections = {8, 1, 2, 3, 4, 5, 6, 7};
  moment.accepted = 100;
  moment.queued = 9;
  moment.workers = {2, 3, 4};
  moment.spilled = 5'000'000'000;
  moment.ready = true;
  moment.catalogs = {{books, false, 12, 1'794'800'467}, {"broken", true, {}, {}}};
  const std::pair<const char *, const char *> rows[] = {
      {"rdmd_connections{state=\"handshake\"}", "8"},
      {"rdmd_connections{state=\"idle\"}", "1"},
      {"rdmd_connections{state=\"head\"}", "2"},
      {"rdmd_connections{state=\"body\"}", "3"},
      {"rdmd_connections{state=\"service\"}", "4"},
      {"rdmd_connections{state=\"sending\"}", "5"},
      {"rdmd_connections{state=\"lingering\"}", "6"},
      {"rdmd_connections{state=\"closed\"}", ""},
      {"rdmd_connections_accepted_total", "100"},
      {"rdmd_queue_length", "9"},
      {"rdmd_workers{state=\"starting\"}", ""},
      {"rdmd_workers{state=\"idle\"}", "2"},
      {"rdmd_workers{state=\"busy\"}", "3"},
      {"rdmd_workers{state=\"stopping\"}", "4"},
      {"rdmd_spill_bytes", "5000000000"},
      {"rdmd_ready", "1"},
      {"rdmd_catalog_failing{catalog=\"x-catalog://localhost:80/books\"}", "0"},
      {"rdmd_catalog_failing{catalog=\"broken\"}", "1"},
      {"rdmd_catalog_descriptions{catalog=\"x-catalog://localhost:80/books\"}", "12"},
      {"rdmd_catalog_descriptions{catalog=\"broken\"}", ""},
      {"rdmd_catalog_newest_change_timestamp_seconds{catalog=\"x-catalog://localhost:80/books\"}", "1794800467"},
  };
  for (const auto &[name, expected] : rows) EXPECT_EQ(value(name, moment), expected) << name;
}

TEST_F(MetricsOfRequests, RestartsOfWorkersAreFedFromOutside) {
  metrics_.worker_restarted();
  metrics_.worker_restarted();
  EXPECT_EQ(value("rdmd_worker_restarts_total"), "2");
}

/// Every line is a comment or a sample, and each family has its two comments once, before its samples.
TEST_F(MetricsOfRequests, TheTextIsWellFormed) {
  metrics_.set_catalogs({books});
  metrics_.count(answered("rd-request", books));
  const std::string all = text({.catalogs = {{books, false, 12, 7}}});
  const std::regex line(
      R"((# HELP [a-z_]+ [^\n]+\.|# TYPE [a-z_]+ (counter|gauge|histogram)|[a-z_]+(\{[a-z]+="[^"\n]*"(,[a-z]+="[^"\n]*")*\})? \d+(\.\d+)?)\n)");
  EXPECT_EQ(std::regex_replace(all, line, ""), "");
  std::string family;
  const std::regex type("# TYPE ([a-z_]+) ");
  for (std::sregex_iterator it(all.begin(), all.end(), type), end; it != end; ++it) {
    const std::string name = (*it)[1];
    EXPECT_EQ(all.find("# TYPE " + name + " "), all.rfind("# TYPE " + name + " ")) << name;
    EXPECT_EQ(all.find("# HELP " + name + " "), all.rfind("# HELP " + name + " ")) << name;
  }
  EXPECT_TRUE(std::regex_search(all, std::regex(R"(\nrdmd_build_info\{version="\d+\.\d+\.\d+"\} 1\n)"))) << all;
  const auto now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  EXPECT_NEAR(std::stod(value("process_start_time_seconds")), now, 60);
}

TEST_F(MetricsOfRequests, AreExactWhenManyThreadsCount) {
  metrics_.set_catalogs({books});
  constexpr int each = 5000;
  {
    std::array<std::jthread, 4> threads;
    for (std::jthread &thread : threads)
      thread = std::jthread([this] {
        for (int i = 0; i < each; ++i) {
          metrics_.count(answered("rd-request", books));
          if (i % 1000 == 0) metrics_.set_catalogs({books, "other"});
        }
      });
  }
  EXPECT_EQ(requests("rd-request", books, "answered"), std::to_string(4 * each));
  EXPECT_EQ(value("rdmd_sending_seconds_count"), std::to_string(4 * each));
}

}  // namespace
