// SPDX-License-Identifier: MIT
/// Harvesting: answers to gatherers, byte for byte.

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "e2e/service.h"
#include "libcs/cs.h"

using namespace rdm;

namespace {

using namespace rdm::e2e;
using support::HttpResponse;

class Harvest : public ServiceTest {
 protected:
  static std::string http_time(std::uint32_t time) {
    std::array<char, 64> text{};
    cs_time2str(static_cast<time_t>(time), text.data(), static_cast<int>(text.size()));
    return text.data();
  }
  static std::string in_query(const std::string &text) {
    std::string query;
    for (const char c : text) query += c == ' ' ? "+" : std::string(1, c);
    return query;
  }
};

TEST_F(Harvest, AllByGetIsTheWholeCatalogInTheOrderOfItsIndex) {
  start();
  const std::string answer = expected(catalog("rfc"), read_index(catalog("rfc") + ".idx"));
  const HttpResponse response = get("/rdm/rd-request?ql=gatherer&scope=all");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.field("content-type"), "application/x-rdm");
  EXPECT_EQ(response.field("content-length"), std::to_string(answer.size()));
  EXPECT_EQ(response.body, answer);
}

TEST_F(Harvest, AllByPostIsTheSameForEachService) {
  start();
  for (const auto &[name, csid] : std::map<std::string, std::string>{{"rfc", rfc}, {"classics", classics}}) {
    const std::string answer = expected(catalog(name), read_index(catalog(name) + ".idx"));
    for (const char *target : {"/rdm/rd-request", "/rdm/incoming", "/RDM/RD-Request"})
      EXPECT_EQ(post(target, rd_request(csid, attribute("scope", "all"))).body, answer) << name << ' ' << target;
    EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&csid=" + csid).body, answer) << name;
  }
}

TEST_F(Harvest, TheAnswerHoldsEveryDescriptionAsItWasImported) {
  start();
  for (const auto &catalog : examples::catalogs()) {
    std::map<std::string, examples::Object> received;
    for (const auto &object :
         examples::parse(post("/rdm/rd-request", rd_request(catalog.csid, attribute("scope", "all"))).body))
      received.emplace(object.url, object);
    const auto descriptions = examples::parse_example(catalog.directory + "/rds.soif");
    ASSERT_EQ(descriptions.size(), catalog.descriptions);
    EXPECT_EQ(received.size(), catalog.descriptions + 1) << "the header as well";
    for (const auto &description : descriptions) {
      examples::Object object = received[description.url];
      EXPECT_EQ(object.attributes.erase("rd-last-changed"), 1u);
      EXPECT_EQ(object.template_name, description.template_name);
      EXPECT_EQ(object.attributes, description.attributes) << description.url;
    }
  }
}

TEST_F(Harvest, TheExampleRequestsAreAnswered) {
  start();
  const auto index = read_index(catalog("rfc") + ".idx");
  EXPECT_EQ(post("/rdm/incoming", support::read_file(examples::example("requests/all.rdm"))).body,
            expected(catalog("rfc"), index));
  EXPECT_EQ(post("/rdm/incoming", support::read_file(examples::example("requests/status.rdm"))).body,
            answer_header("status-response") + "\n\nOnline.\n");
  const auto objects =
      examples::parse(post("/rdm/incoming", support::read_file(examples::example("requests/since.rdm"))).body);
  ASSERT_EQ(objects.size(), 6u);
  for (std::size_t i = 1; i < objects.size(); ++i)
    for (const auto &[name, value] : objects[i].attributes)
      EXPECT_NE(std::string("title author last-modified").find(examples::base_name(name)), std::string::npos) << name;
}

TEST_F(Harvest, ViewHitsLimitsTheNumber) {
  start();
  auto index = read_index(catalog("rfc") + ".idx");
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&view-hits=0").body, expected(catalog("rfc"), index));
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&view-hits=1000").body, expected(catalog("rfc"), index));
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&view-hits=-1").body, expected(catalog("rfc"), {}));
  index.resize(7);
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all&view-hits=7").body, expected(catalog("rfc"), index));
}

TEST_F(Harvest, ViewAttributesSelectsTheNamedAttributes) {
  start();
  const auto objects = examples::parse(get("/rdm/rd-request?ql=gatherer&scope=all&view-attributes=title,author").body);
  const auto index = read_index(catalog("rfc") + ".idx");
  ASSERT_EQ(objects.size(), index.size() + 1);
  for (std::size_t i = 0; i < index.size(); ++i) {
    examples::Object whole = examples::parse(record(catalog("rfc"), index[i].number)).at(0);
    std::erase_if(whole.attributes, [](const auto &pair) {
      const std::string name = examples::base_name(pair.first);
      return name != "title" && name != "author";
    });
    EXPECT_EQ(objects[i + 1].url, whole.url);
    EXPECT_EQ(objects[i + 1].attributes, whole.attributes);
  }
}

TEST_F(Harvest, SinceSendsDescriptionsChangedAtThatTimeOrLater) {
  const std::string directory = directory_.path();
  const std::string database = directory_.path("rfc.db");
  // Times have a resolution of one second: each batch gets one of its own.
  make_catalog(directory, "rfc", examples::example("rfc/rds.soif"));
  for (const std::vector<std::string> &urls :
       {std::vector<std::string>{"x://new/1"}, {"x://new/2", "x://new/3", "x://new/4"}}) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    std::string batch;
    for (const std::string &url : urls) batch += "@FILE { " + url + "\n" + attribute("title", "New") + "}\n";
    make_catalog(directory, "rfc", directory_.write("batch", batch));
  }
  start(filled("csid.conf.in", directory));
  const auto index = read_index(database + ".idx");
  ASSERT_EQ(index.size(), 92u);
  const std::uint32_t second = index[88].time;
  ASSERT_GT(second, index[87].time);
  ASSERT_GT(index[89].time, second);

  const std::string later = expected(database, {index.begin() + 88, index.end()});
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=since+" + in_query(http_time(second))).body, later);
  EXPECT_EQ(post("/rdm/rd-request", rd_request(rfc, attribute("scope", "since " + http_time(second)))).body, later);
  const auto two = expected(database, {index.begin() + 88, index.begin() + 90});
  EXPECT_EQ(post("/rdm/rd-request",
                 rd_request(rfc, attribute("scope", "since " + http_time(second)) + attribute("view-hits", "2")))
                .body,
            two);
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=since+Thu,+01+Jan+2015+00:00:00+GMT").body,
            expected(database, index));
  // The search narrows to the last entry, which is left for the next harvest.
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=since+" + in_query(http_time(index[91].time + 3600))).body,
            expected(database, {}));
}

TEST_F(Harvest, AnUpdatedCatalogIsServedFromTheNextRequestOn) {
  make_catalog(directory_.path(), "rfc", examples::example("rfc/rds.soif"));
  const std::string database = directory_.path("rfc.db");
  start(filled("csid.conf.in", directory_.path()));
  const std::string before = expected(database, read_index(database + ".idx"));
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all").body, before);
  make_catalog(directory_.path(), "rfc",
               directory_.write("batch", "@FILE { x://new/1\n" + attribute("title", "New") + "}\n"));
  const std::string after = expected(database, read_index(database + ".idx"));
  EXPECT_NE(after, before);
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all").body, after);
}

/// A catalog whose answer is far larger than the kernel's buffers of a connection.
class LargeHarvest : public Harvest {
 protected:
  static constexpr std::size_t records = 4000;

  /// The answer is made here: the server does not wait for long for a client that reads nothing meanwhile.
  static void SetUpTestSuite() {
    share_large_catalog(records);
    answer = expected(catalog("rfc"), read_index(catalog("rfc") + ".idx"));
  }

  void serve() { start("csid=\"" + rfc + "\"\ncatalog-database=\"" + catalog("rfc") + "\"\n"); }
  static const std::string &whole() { return answer; }
  static std::string request() {
    return "GET /rdm/rd-request?ql=gatherer&scope=all HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
  }

 private:
  static inline std::string answer;
};

TEST_F(LargeHarvest, ArrivesWhole) {
  serve();
  const HttpResponse response = get("/rdm/rd-request?ql=gatherer&scope=all");
  EXPECT_EQ(response.field("content-length"), std::to_string(whole().size()));
  EXPECT_EQ(response.body, whole());
}

TEST_F(LargeHarvest, ClientsThatReadNothingDelayNoOthers) {
  serve();
  std::vector<std::unique_ptr<support::HttpClient>> deaf;
  for (int i = 0; i < 3; ++i) {
    deaf.push_back(std::make_unique<support::HttpClient>(port_, false, 65536));
    deaf.back()->send(request());
  }
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(get("/rdm/status-request").body, answer_header("status-response") + "\n\nOnline.\n");
  EXPECT_EQ(deaf[1]->receive().body, whole());
}

TEST_F(LargeHarvest, IsFinishedWhenTheServerStops) {
  serve();
  support::HttpClient client(port_, false, 65536);
  client.send(request());
  EXPECT_TRUE(client.readable(support::timeout));
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("stopping"));
  EXPECT_EQ(client.receive().body, whole());
  client.finish_sending();
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(LargeHarvest, LeavesNoTemporaryFileBehind) {
  serve();
  EXPECT_EQ(get("/rdm/rd-request?ql=gatherer&scope=all").body.size(), whole().size());
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path("tmp")));
}

}  // namespace
