// SPDX-License-Identifier: MIT
/// Health and metrics of the whole system.

#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <string>

#include <nlohmann/json.hpp>

#include "e2e/service.h"
#include "support/directories.h"

namespace rdm::e2e {
namespace {

using nlohmann::json;
using support::HttpResponse;

class Observed : public ServiceTest {
 protected:
  /// start_own starts the server with a copy of one catalog, which a test may change.
  void start_own() {
    std::filesystem::copy_file(catalog("rfc"), database_);
    std::filesystem::copy_file(catalog("rfc") + ".idx", database_ + ".idx");
    start("csid=\"" + rfc + "\" catalog-database=\"" + database_ + "\"\n", {"--admin", "127.0.0.1:0"});
    admin_ = server_->admin_port();
  }
  void start_all() {
    start("", {"--admin", "127.0.0.1:0"});
    admin_ = server_->admin_port();
  }
  HttpResponse ask(const std::string &target) const { return support::http_get(admin_, target); }
  /// await asks until the status is as expected: the endpoint remembers the state of the files for a second.
  HttpResponse await(const std::string &target, int status) const {
    support::eventually([&] { return ask(target).status == status; });
    return ask(target);
  }
  bool counts(const std::string &line) const {
    return ("\n" + ask("/metrics").body).find("\n" + line + "\n") != std::string::npos;
  }

  const std::string database_ = directory_.path("own.db");
  int admin_ = 0;
};

TEST_F(Observed, HealthShowsEachCatalog) {
  start_all();
  const HttpResponse response = ask("/healthz");
  EXPECT_EQ(response.status, 200);
  const json health = json::parse(response.body);
  EXPECT_EQ(health["status"], "ok");
  ASSERT_EQ(health["catalogs"].size(), 2u);
  const std::pair<std::string, std::string> names[] = {{rfc, "rfc"}, {classics, "classics"}};
  for (std::size_t i = 0; i < 2; ++i) {
    const auto &[csid, name] = names[i];
    const json &one = health["catalogs"][i];
    const std::vector<IndexEntry> entries = read_index(catalog(name) + ".idx");
    EXPECT_EQ(one["csid"], csid);
    EXPECT_EQ(one["status"], "ok");
    EXPECT_EQ(one["descriptions"], entries.size());
    EXPECT_EQ(one["newest_change"],
              run("date -u -d @" + std::to_string(entries.back().time) + " +%FT%TZ | tr -d '\\n'"));
    struct stat status {};
    ASSERT_EQ(::stat(catalog(name).c_str(), &status), 0);
    EXPECT_EQ(one["database"]["path"], catalog(name));
    EXPECT_EQ(one["database"]["device"], status.st_dev);
    EXPECT_EQ(one["database"]["inode"], status.st_ino);
    EXPECT_EQ(one["database"]["size"], status.st_size);
    EXPECT_EQ(one["database"]["modified_ns"], status.st_mtim.tv_nsec);
    EXPECT_EQ(one["index"]["size"], 8 + 20 * entries.size());
    EXPECT_FALSE(one.contains("failures"));
    EXPECT_FALSE(one.contains("notes"));
  }
}

TEST_F(Observed, MetricsCountRequestsByTypeCatalogAndOutcome) {
  start_all();
  const std::size_t size = read_index(catalog("rfc") + ".idx").size();
  EXPECT_EQ(get("/rdm/status-request").status, 200);
  EXPECT_EQ(get("/rdm/status-request?csid=" + classics).status, 200);
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&csid=" + rfc).status, 200);
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&view-hits=3&csid=" + rfc).status, 200);
  EXPECT_EQ(post("/rdm/incoming", rd_request(classics, attribute("scope", "all") + attribute("view-hits", "2"))).status,
            200);
  EXPECT_EQ(get("/rdm/schema-description-request?csid=" + rfc).status, 200);
  EXPECT_EQ(get("/rdm/status-request?csid=x-catalog://evil:1/\"x").status, 200);
  EXPECT_EQ(get("/rdm/no-such-request").status, 200);
  EXPECT_EQ(get("/").status, 404);
  support::eventually([this] { return counts("rdmd_sending_seconds_count 9"); });
  const std::string text = ask("/metrics").body;
  const std::size_t first = text.find("\nrdmd_requests_total{") + 1;
  const std::size_t end = text.find("\n# HELP rdmd_descriptions_sent_total") + 1;
  const auto line = [](const std::string &type, const std::string &csid, const std::string &outcome, int count) {
    return "rdmd_requests_total{type=\"" + type + "\",catalog=\"" + csid + "\",outcome=\"" + outcome + "\"} " +
           std::to_string(count) + "\n";
  };
  EXPECT_EQ(text.substr(first, end - first),
            line("rd-request", classics, "answered", 1) + line("status-request", classics, "answered", 1) +
                line("rd-request", rfc, "answered", 2) + line("schema-description-request", rfc, "answered", 1) +
                line("status-request", rfc, "answered", 1) + line("status-request", "unknown", "answered", 1) +
                line("unknown", "unknown", "answered", 1) + line("http", "unknown", "not_found", 1));
  EXPECT_TRUE(counts("rdmd_descriptions_sent_total " + std::to_string(size + 3 + 2)));
  EXPECT_TRUE(counts("rdmd_service_seconds_count 8"));
  EXPECT_TRUE(counts("rdmd_catalog_descriptions{catalog=\"" + rfc + "\"} " + std::to_string(size)));
  EXPECT_TRUE(counts("rdmd_ready 1"));
}

TEST_F(Observed, AMissingDatabaseMakesTheServerNotReady) {
  start_own();
  EXPECT_EQ(ask("/readyz").body, "ready\n");
  std::filesystem::remove(database_);
  EXPECT_EQ(await("/readyz", 503).body, rfc + ": database " + database_ + ": No such file or directory\n");
  const HttpResponse health = ask("/healthz");
  EXPECT_EQ(health.status, 503);
  EXPECT_EQ(json::parse(health.body)["status"], "failing");
  EXPECT_TRUE(counts("rdmd_ready 0"));
  EXPECT_TRUE(counts("rdmd_catalog_failing{catalog=\"" + rfc + "\"} 1"));
  EXPECT_EQ(ask("/livez").status, 200);
  std::filesystem::copy_file(catalog("rfc"), database_);
  EXPECT_EQ(await("/readyz", 200).body, "ready\n");
}

TEST_F(Observed, ADamagedIndexMakesTheServerNotReady) {
  start_own();
  support::write_file(database_ + ".idx", "no index");
  EXPECT_EQ(await("/readyz", 503).body, rfc + ": index " + database_ + ".idx: is no index\n");
}

TEST_F(Observed, AnEmptyCatalogIsAFailureOfHealthAlone) {
  start_own();
  const std::string bin = support::in_build("bin");
  for (const IndexEntry &entry : read_index(database_ + ".idx"))
    run(bin + "/minidba -d " + database_ + " delete " + std::to_string(entry.number) + " 2>/dev/null");
  run(bin + "/minidba -d " + database_ + " -i " + database_ + ".idx index 2>/dev/null");
  const json health = json::parse(await("/healthz", 503).body);
  EXPECT_EQ(health["catalogs"][0]["failures"][0], "index " + database_ + ".idx: has no descriptions");
  EXPECT_EQ(health["catalogs"][0]["failures"][1], "database " + database_ + ": has no records");
  EXPECT_EQ(ask("/readyz").status, 200);
}

TEST_F(Observed, AnIndexOlderThanItsDatabaseIsANote) {
  start_own();
  run(support::in_build("bin") + "/minidba -d " + database_ + " delete 1 2>/dev/null");
  support::eventually([this] { return ask("/healthz").body.find("notes") != std::string::npos; });
  const HttpResponse response = ask("/healthz");
  EXPECT_EQ(response.status, 200);
  const json health = json::parse(response.body);
  EXPECT_EQ(health["catalogs"][0]["status"], "ok");
  EXPECT_EQ(health["catalogs"][0]["notes"], json::array({"the index is older than the database"}));
}

TEST_F(Observed, HealthFollowsAReload) {
  start("", {"--admin", "127.0.0.1:0", "--workers", "1"});
  admin_ = server_->admin_port();
  EXPECT_EQ(json::parse(ask("/healthz").body)["catalogs"].size(), 2u);
  directory_.write("csid.conf", "csid=\"" + rfc + "\" catalog-database=\"" + catalog("rfc") + "\"\n");
  EXPECT_EQ(json::parse(ask("/healthz").body)["catalogs"].size(), 2u) << "the list changes with the service";
  server_->signal(SIGHUP);
  EXPECT_TRUE(support::eventually([this] { return json::parse(ask("/healthz").body)["catalogs"].size() == 1; }));
  EXPECT_EQ(ask("/metrics").body.find(classics), std::string::npos);
}

// The service starts without any catalog service too, and then refuses every request.
TEST_F(Observed, AReloadOrUpgradeThatWouldLoseAllCatalogsIsRefused) {
  start("", {"--admin", "127.0.0.1:0", "--workers", "1"});
  admin_ = server_->admin_port();
  const std::string before = get("/rdm/status-request").body;
  run("mv " + directory_.path("csid.conf") + " " + directory_.path("aside"));
  for (const auto &[signal, action] : {std::pair{SIGHUP, "reload"}, {SIGUSR2, "upgrade"}}) {
    server_->signal(signal);
    EXPECT_TRUE(server_->await_error(std::string("] [error] rdmd: ") + action + ": " + directory_.path("rdm.conf") +
                                     ": no catalog service is configured any more; still serving with the former "
                                     "configuration\n"))
        << server_->errors();
  }
  const std::regex mistake("/csid\\.conf: error: cannot be read: No such file or directory\n");
  const std::string errors = server_->errors();
  EXPECT_EQ(std::distance(std::sregex_iterator(errors.begin(), errors.end(), mistake), std::sregex_iterator()), 2)
      << errors;
  EXPECT_EQ(get("/rdm/status-request").body, before);
  run("mv " + directory_.path("aside") + " " + directory_.path("csid.conf"));
  server_->signal(SIGHUP);
  EXPECT_TRUE(server_->await_error("the workers of generation 2 serve\n")) << server_->errors();
}

/// Dashboard and alert rules name no metric that the server does not have.
TEST_F(Observed, DashboardAndAlertsUseMetricsThatExist) {
  start_all();
  get("/rdm/status-request");
  support::eventually([this] { return counts("rdmd_sending_seconds_count 1"); });
  const std::string text = ask("/metrics").body;
  const std::regex name("\\b(rdmd_[a-z_]+|process_[a-z_]+)\\b");
  int names = 0;
  for (const char *file : {"packaging/monitoring/rdmd-dashboard.json", "packaging/monitoring/rdmd-alerts.yml"}) {
    const std::string queries = support::read_file(support::in_source(file));
    for (std::sregex_iterator it(queries.begin(), queries.end(), name), end; it != end; ++it, ++names)
      EXPECT_TRUE(std::regex_search(text, std::regex("\n" + (*it)[1].str() + "[{ ]"))) << file << ": " << (*it)[1];
  }
  EXPECT_GT(names, 20);
  EXPECT_TRUE(json::accept(support::read_file(support::in_source("packaging/monitoring/rdmd-dashboard.json"))));
}

}  // namespace
}  // namespace rdm::e2e
