// SPDX-License-Identifier: MIT
/// The verbs of rdmctl that need a configuration: catalogs, check, preview.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "hosts/rdmd/rdmd_process.h"
#include "tools/rdmctl/descriptions.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

/// ServiceVerbs has a service with a sound catalog of three descriptions, and none that is bare.
class ServiceVerbs : public testing::Test {
 protected:
  void SetUp() override {
    std::string services = support::read_file(service_.path("csid.conf"));
    services.resize(services.find("csid=\"bare\""));
    service_.write("csid.conf", services);
    ASSERT_EQ(rdmctl({"publish", service_.database(), "-"}, described(1, 3)).status, 0);
  }
  Finished run(std::vector<std::string> words) const {
    words.insert(words.begin(), {"--config", service_.config()});
    return rdmctl(words);
  }
  void add_service(const std::string &lines) const {
    service_.write("csid.conf", support::read_file(service_.path("csid.conf")) + lines);
  }
  const std::string &database() const { return database_; }

  ServiceFiles service_;
  std::string database_ = service_.database();
};

TEST_F(ServiceVerbs, CatalogsListsThem) {
  const Finished finished = run({"catalogs"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_THAT(finished.out, testing::MatchesRegex(csid +
                                                  ": 3 descriptions, 3 indexed, [0-9]+ bytes, changed .*, published "
                                                  "20.*Z: " +
                                                  database() + "\n"));
  const nlohmann::json row = nlohmann::json::parse(run({"catalogs", "--json"}).out)[0];
  EXPECT_EQ(row["csid"], csid);
  EXPECT_EQ(row["descriptions"], 3);
  EXPECT_EQ(row["bytes"], std::filesystem::file_size(database()));
}

TEST_F(ServiceVerbs, CatalogsNamesThoseThatItCannotRead) {
  add_service("csid=\"a\"\ncsid=\"b\"\ncatalog-database=\"/nowhere/b\"\n");
  support::write_file(database() + ".idx", "no index");
  const Finished finished = run({"catalogs"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, csid + ": not an index: " + database() +
                              ".idx\na: no catalog-database is configured\nb: no such database: /nowhere/b\n");
  const nlohmann::json rows = nlohmann::json::parse(run({"catalogs", "--json"}).out);
  EXPECT_EQ(rows[2]["failure"], "no such database: /nowhere/b");
}

TEST_F(ServiceVerbs, CatalogsFailsIfTheListOfServicesCannotBeRead) {
  const std::string list = service_.path("csid.conf");
  std::filesystem::remove(list);
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"catalogs"}, {"imports", csid}, {"taxonomy", "show", csid}}) {
    const Finished finished = run(words);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "rdmctl: cannot read " + list + ": No such file or directory\n");
  }
  ASSERT_EQ(::mkfifo(list.c_str(), 0600), 0);
  EXPECT_EQ(run({"catalogs"}).errors, "rdmctl: not a regular file: " + list + "\n");
  service_.write("rdm.conf", "bindir=\"/\"\n");
  EXPECT_EQ(run({"catalogs"}).errors, "rdmctl: no csid-config in " + service_.config() + "\n");
}

TEST_F(ServiceVerbs, ADatabaseThatWasNotPublishedHasNoTime) {
  std::filesystem::remove(database() + ".imports");
  EXPECT_THAT(run({"catalogs"}).out, testing::Not(HasSubstr("published")));
}

TEST_F(ServiceVerbs, CheckFindsASoundService) {
  const Finished finished = run({"check"});
  EXPECT_EQ(finished.status, 0) << finished.out;
  EXPECT_EQ(finished.out, csid + ": sound: 3 descriptions, 3 index entries\n");
  EXPECT_EQ(run({"check", "--json"}).out,
            "{\"sound\":true,\"findings\":[],\"catalogs\":[{\"sound\":true,\"descriptions\":3,\"indexed\":3,"
            "\"index-older\":false,\"url-map\":true,\"fault-count\":0,\"faults\":[],\"csid\":\"" +
                csid + "\"}]}\n");
  const Finished monitored = run({"check", "--monitor"});
  EXPECT_EQ(monitored.status, 0);
  EXPECT_EQ(monitored.out,
            "RDM OK: 0 errors, 0 warnings, 1 catalog with 3 descriptions | errors=0 warnings=0 descriptions=3\n" +
                csid + ": sound: 3 descriptions, 3 index entries\n");
}

TEST_F(ServiceVerbs, CheckReportsPreparedAnswersAndAlsoWhatOnlyVerifyFinds) {
  const std::string answer = service_.write("server.rdm", "@RDMHEADER { -\nrdm-type{9}:\tx\n}\n");
  add_service("server-description=\"" + answer + "\"\n");
  std::string map = support::read_file(database() + ".url");
  map[map.find("localhost")] = 'L';
  support::write_file(database() + ".url", map);
  std::filesystem::last_write_time(database() + ".url", std::filesystem::file_time_type::clock::now());
  const Finished finished = run({"check"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.out, HasSubstr(answer + ":2: error: \"rdm-type\" announces 9 bytes"));
  EXPECT_THAT(finished.out, HasSubstr(csid + ": the URL map is not as it was written: " + database() + ".url\n"));
  EXPECT_THAT(finished.out, testing::ContainsRegex(csid + ": damaged: [0-9]+ faults\n"));
  const nlohmann::json result = nlohmann::json::parse(run({"check", "--json"}).out);
  EXPECT_EQ(result["sound"], false);
  EXPECT_EQ(result["findings"][0]["severity"], "error");
  EXPECT_EQ(run({"check", "--monitor"}).status, 2);
}

TEST_F(ServiceVerbs, AnOlderIndexIsAWarning) {
  ASSERT_EQ(support::run({support::in_build("bin/minidba"), "-d", database(), "update"}, described(4, 4)).status, 0);
  const Finished finished = run({"check"});
  EXPECT_EQ(finished.status, 0) << finished.out;
  EXPECT_THAT(finished.out, HasSubstr(csid + ": sound: 4 descriptions, 3 index entries, index older than the "
                                             "database\n"));
  const Finished monitored = run({"check", "--monitor"});
  EXPECT_EQ(monitored.status, 1);
  EXPECT_THAT(monitored.out, testing::StartsWith("RDM WARNING: 0 errors, 2 warnings, 1 catalog with 4 descriptions |"));
}

TEST_F(ServiceVerbs, WithoutAConfigurationTheStateIsUnknown) {
  const Finished finished = rdmctl({"--config", "/nowhere/c", "check", "--monitor"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_EQ(finished.out, "RDM UNKNOWN: cannot read /nowhere/c: No such file or directory\n");
  for (const char *verb : {"check", "catalogs"}) {
    const Finished failed = rdmctl({"--config", "/nowhere/c", verb});
    EXPECT_EQ(failed.status, 2);
    EXPECT_EQ(failed.errors, "rdmctl: cannot read /nowhere/c: No such file or directory\n");
  }
}

TEST_F(ServiceVerbs, PreviewTellsWhatTheServerSends) {
  const std::string plugin = support::in_build("lib/librdm.so.1");
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--plugin", plugin, "--config", service_.config()});
  const std::pair<std::vector<std::string>, std::string> queries[] = {
      {{}, "scope=all"},
      {{"--attributes", "title,rd-expires"}, "scope=all&view-attributes=title,rd-expires"},
      {{"--hits", "2"}, "scope=all&view-hits=2"},
      {{"--since", "2 days ago"}, "scope=since+01+Jan+2000"},
      {{"--since", "2099-12-31"}, "scope=since+31+Dec+2099"},
  };
  for (const auto &[words, query] : queries) {
    std::vector<std::string> command{"preview", "--json", csid};
    command.insert(command.end(), words.begin(), words.end());
    const Finished finished = run(command);
    EXPECT_EQ(finished.status, 0) << finished.errors;
    const std::string sent = support::http_get(server.port(), "/rdm/rd-request?ql=gatherer&" + query).body;
    const nlohmann::json told = nlohmann::json::parse(finished.out);
    EXPECT_EQ(told["bytes"], sent.size()) << query;
    size_t descriptions = 0;
    for (size_t at = 0; (at = sent.find("{ http://", at)) != std::string::npos; ++at) ++descriptions;
    EXPECT_EQ(told["descriptions"], descriptions) << query;
  }
  EXPECT_THAT(run({"preview", csid}).out, testing::MatchesRegex("3 descriptions, [0-9]+ bytes\n"));
}

TEST_F(ServiceVerbs, PreviewLeavesNoLineInTheTransactionLog) {
  ASSERT_EQ(run({"preview", csid}).status, 0);
  EXPECT_EQ(support::read_file(service_.path("rdm.log")), "");
}

TEST_F(ServiceVerbs, PreviewRefusesWhatItCannotAsk) {
  EXPECT_EQ(run({"preview", "x-catalog://h:1/x"}).errors,
            "rdmctl: no catalog service x-catalog://h:1/x in " + service_.path("csid.conf") + "\n");
  EXPECT_EQ(run({"preview", csid, "--since", "tea time"}).status, 2);
  std::filesystem::remove(database() + ".idx");
  const Finished finished = run({"preview", csid});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: the service refuses the query, or cannot read the catalog\n");
}

/// A transaction log of two clients, on two days.
const std::string transactions =
    "192.0.2.7 - - [16/Nov/2026:03:41:07 -0000] \"88 RDs Transfered\" - 46524\n"
    "192.0.2.7 - - [17/Nov/2026:03:41:07 -0000] \"2 RDs Transfered since Mon, 16 Nov 2026 03:41:07 GMT\" - 900\n"
    "192.0.2.7 - - [18/Nov/2026:03:41:07 -0000] \"5 RDs Transfered since Tue, 17 Nov 2026 03:41:07 GMT\" - 0\n"
    "192.0.2.8 - - [16/Nov/2026:03:41:07 -0000] \"STATUS OK sent\" - -\n"
    "192.0.2.8 - - [16/Nov/2026:03:41:09 -0000] \"STATUS Illegal sent\" - -\n"
    "192.0.2.9 - - [16/Nov/2026:03:41:09 -0000] \"Accepted 3 RDs from 192.0.2.8\" - -\n";

TEST_F(ServiceVerbs, HarvestersTellsWhoHarvestedWhat) {
  const std::string log = service_.write("rdm.log", transactions);
  const Finished finished = run({"harvesters"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(finished.out,
            "192.0.2.7: 3 harvests, 90 descriptions, 47424 bytes, 1 failed, 0 refused, from 2026-11-16T03:41:07Z to "
            "2026-11-18T03:41:07Z, last success 2026-11-17T03:41:07Z: since Mon, 16 Nov 2026 03:41:07 GMT\n"
            "192.0.2.8: 0 harvests, 0 descriptions, 0 bytes, 0 failed, 1 refused, from 2026-11-16T03:41:09Z to "
            "2026-11-16T03:41:09Z, last success never\n");
  EXPECT_EQ(rdmctl({"harvesters", log, "--json", "--since", "2026-11-17"}).out,
            "[{\"client\":\"192.0.2.7\",\"harvests\":2,\"descriptions\":2,\"bytes\":900,\"failed\":1,\"refused\":0,"
            "\"first\":\"2026-11-17T03:41:07Z\",\"last\":\"2026-11-18T03:41:07Z\",\"last-success\":"
            "\"2026-11-17T03:41:07Z\",\"since\":\"Mon, 16 Nov 2026 03:41:07 GMT\"}]\n");
}

TEST_F(ServiceVerbs, HarvestersReadsWhatTheServerWrites) {
  const std::string plugin = support::in_build("lib/librdm.so.1");
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--plugin", plugin, "--config", service_.config()});
  const std::string sent = support::http_get(server.port(), "/rdm/rd-request?ql=gatherer&scope=all").body;
  support::http_get(server.port(), "/rdm/status-request");
  std::string shown;
  for (int i = 0; i < 500 && shown.empty(); ++i) {
    shown = run({"harvesters", "--json"}).out;
    if (shown == "[]\n") shown.clear();
  }
  const nlohmann::json row = nlohmann::json::parse(shown)[0];
  EXPECT_EQ(row["client"], "127.0.0.1");
  EXPECT_EQ(row["descriptions"], 3);
  EXPECT_EQ(row["bytes"], sent.size());
  EXPECT_EQ(row["since"], nullptr);
}

TEST_F(ServiceVerbs, HarvestersPassesOverOtherLines) {
  const std::string log = service_.write(
      "log", transactions + "junk\n\n192.0.2.7 - - [32/Foo/2026] \"1 RDs Transfered\" - 1\n1 - - [\n" +
                 std::string(70000, '\xff') + "\n\x1b[2J - - [16/Nov/2026:03:41:07 -0000] \"1 RDs Transfered\" - 9");
  const Finished finished = rdmctl({"harvesters", log});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors, "rdmctl: 5 lines are not of a transaction log\n");
  EXPECT_THAT(finished.out, testing::StartsWith("\\x1b[2J: 1 harvest, 1 description, 9 bytes"));
}

TEST_F(ServiceVerbs, HarvestersNeedsALog) {
  EXPECT_EQ(rdmctl({"harvesters"}).errors,
            "rdmctl: no transaction log: name one, or the configuration with --config\n");
  EXPECT_EQ(rdmctl({"harvesters", "/nowhere/log"}).errors,
            "rdmctl: cannot read /nowhere/log: No such file or directory\n");
  const std::string bare = service_.write("bare.conf", "bindir=\"/\"\n");
  EXPECT_EQ(rdmctl({"--config", bare, "harvesters"}).errors, "rdmctl: no logfile in " + bare + "\n");
}

std::string attribute(const std::string &name, const std::string &value) {
  return name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
}

/// A schema description with a root table and another one.
std::string schema(const std::string &root_column = "id") {
  std::string text = "@SCHEMA { -\n";
  const char *columns[][3] = {
      {"id", "documents", root_column.c_str()}, {"title", "documents", "title"}, {"author", "authors", "name"}};
  for (int i = 0; i < 3; ++i) {
    const std::string number = "-" + std::to_string(i + 1);
    text += attribute("soif-attribute" + number, columns[i][0]) +
            attribute("system-table-name" + number, columns[i][1]) +
            attribute("system-column-name" + number, columns[i][2]);
  }
  return text + "}\n";
}

TEST_F(ServiceVerbs, TranslateGivesColumnsTablesAndAJoin) {
  const std::string file = service_.write("schema.rdm", schema());
  add_service("schema-description=\"" + file + "\"\n");
  const Finished finished = run({"translate", csid, "title,author"});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out,
            "columns: documents.title,authors.name\ntables: documents,authors\n"
            "join: AND documents.id = authors.docid\n");
  const Finished unknown = rdmctl({"translate", "--json", file, "title", "other\x1b"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_EQ(unknown.errors, "rdmctl: no column for other\\x1b\n");
  EXPECT_EQ(unknown.out,
            "{\"columns\":\"documents.title\",\"tables\":[\"documents\"],\"join\":\"\",\"unknown\":"
            "[\"other\\u001b\"]}\n");
}

TEST_F(ServiceVerbs, TranslateRefusesWhatIsNoSchema) {
  const std::string rootless = service_.write("rootless.rdm", schema("ID"));
  const std::string empty = service_.write("empty.rdm", "");
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"translate", rootless, "title"}, "the schema has no root table, which is the one with a column \"id\""},
      {{"translate", empty, "title"}, "not a schema description: " + empty},
      {{"translate", "/nowhere/s", "title"}, "cannot read /nowhere/s: No such file or directory"},
      {{"translate", csid, "title"}, csid + " is a CSID: name the configuration with --config"},
      {{"translate", "--config", service_.config(), csid, "title"},
       "catalog service " + csid + " has no schema-description in " + service_.config()},
      {{"translate", "--config", service_.config(), "x://y", "title"},
       "no catalog service x://y in " + service_.config()},
      {{"translate", rootless, std::string(9000, 'x')}, "the list of attributes is too long"},
  };
  for (const auto &[words, text] : cases) {
    const Finished finished = rdmctl(words);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.errors, "rdmctl: " + text + "\n");
  }
}

std::string class_of(const std::string &id, const std::string &parent, const std::string &taxonomy = "subjects") {
  return "@CLASSIFICATION { http://localhost/tax#" + id + "\n" + attribute("id", id) + attribute("parent-id", parent) +
         attribute("taxonomy-id", taxonomy) + attribute("description", "About " + id) + "}\n\n";
}

std::string taxonomy(const std::string &classes) {
  return "@RDMHEADER { -\n" + attribute("rdm-version", "1.0") + attribute("rdm-type", "taxonomy-description-response") +
         "}\n\n@TAXONOMY { http://localhost/tax\n" + attribute("id", "subjects") + "}\n\n" + classes;
}

class Taxonomies : public ServiceVerbs {
 protected:
  void SetUp() override {
    ServiceVerbs::SetUp();
    add_service("taxonomy-description=\"" + file_ + "\"\n");
    write(class_of("net", "ROOT") + class_of("net.link", "net") + class_of("food", "ROOT"));
  }
  void write(const std::string &classes) const { service_.write("taxonomy.rdm", taxonomy(classes)); }
  std::string file_ = service_.path("taxonomy.rdm");
};

TEST_F(Taxonomies, AreShownAsATree) {
  const Finished finished = run({"taxonomy", "show", csid});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "subjects\n  net: About net\n    net.link: About net.link\n  food: About food\n");
  EXPECT_EQ(rdmctl({"taxonomy", "show", file_}).out, finished.out);
  write(class_of("net", "ROOT") + class_of("net.link", "net"));
  EXPECT_EQ(
      rdmctl({"taxonomy", "show", "--json", file_}).out,
      "{\"id\":\"subjects\",\"classes\":[{\"id\":\"net\",\"parent\":null,\"depth\":1,\"description\":\"About net\"},"
      "{\"id\":\"net.link\",\"parent\":\"net\",\"depth\":2,\"description\":\"About net.link\"}]}\n");
}

TEST_F(Taxonomies, AreSearched) {
  EXPECT_EQ(run({"taxonomy", "find", csid, "NET"}).out, "net: About net\nnet.link: About net.link\n");
  const Finished none = run({"taxonomy", "find", csid, "music"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(run({"taxonomy", "find", "--json", csid, "food"}).out,
            "[{\"id\":\"food\",\"parent\":null,\"depth\":1,\"description\":\"About food\"}]\n");
}

TEST_F(Taxonomies, ACheckNamesClassesThatAreOmitted) {
  EXPECT_EQ(rdmctl({"taxonomy", "check", file_}).out, "sound: 3 classes\n");
  write(class_of("a", "b") + class_of("b", "ROOT") + class_of("b", "ROOT") + class_of("c", "c") +
        class_of("d", "ROOT", "other") + "@CLASSIFICATION { -\n" + attribute("id", "e") + "}\n");
  const Finished finished = run({"taxonomy", "check", csid});
  EXPECT_EQ(finished.status, 1);
  const auto line = [&](int number, const std::string &text) {
    return file_ + ":" + std::to_string(number) + ": error: the class " + text + "\n";
  };
  EXPECT_EQ(finished.out, line(10, "\"a\" is omitted: its parent \"b\" is not before it") +
                              line(24, "\"b\" is there twice") +
                              line(31, "\"c\" is omitted: its parent \"c\" is not before it") +
                              line(38, "\"d\" is omitted: its taxonomy is \"other\", not \"subjects\"") +
                              line(45, "\"e\" is omitted: it has no \"parent-id\""));
}

TEST_F(Taxonomies, ACheckNamesDescriptionsOfClassesThatDoNotExist) {
  const std::string feed = rd(url(1), {{"classification", "net"}, {"classification-2", "sea"}}) +
                           rd(url(2), {{"classification", "food"}}) + rd(url(3), {{"classification", "Food"}});
  ASSERT_EQ(rdmctl({"publish", database(), "-"}, feed).status, 0);
  const Finished finished = run({"taxonomy", "check", "--json", csid});
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.out,
              testing::AnyOf("{\"classes\":3,\"faults\":[\"http://localhost/1: there is no class \\\"sea\\\"\","
                             "\"http://localhost/3: there is no class \\\"Food\\\"\"]}\n",
                             "{\"classes\":3,\"faults\":[\"http://localhost/3: there is no class \\\"Food\\\"\","
                             "\"http://localhost/1: there is no class \\\"sea\\\"\"]}\n"));
}

TEST_F(Taxonomies, AFileWithoutATaxonomyIsReported) {
  const std::string file = service_.write("other", schema());
  EXPECT_EQ(rdmctl({"taxonomy", "show", file}).errors, "rdmctl: no taxonomy in " + file + "\n");
  const Finished checked = rdmctl({"taxonomy", "check", file});
  EXPECT_EQ(checked.status, 1);
  EXPECT_THAT(checked.out, testing::EndsWith("no taxonomy in " + file + "\n"));
  for (const char *action : {"show", "check"}) {
    const Finished missing = rdmctl({"taxonomy", action, "/nowhere/t"});
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.errors, "rdmctl: cannot read /nowhere/t: No such file or directory\n");
  }
}

/// Validation has a schema of each type beside the taxonomy.
class Validation : public Taxonomies {
 protected:
  void SetUp() override {
    Taxonomies::SetUp();
    const char *attributes[][2] = {
        {"id", "serial"}, {"title", "string"},         {"pages", "int"}, {"price", "float"}, {"day", "date"},
        {"text", "blob"}, {"classification", "string"}};
    std::string text = "@SCHEMA { -\n";
    int number = 0;
    for (const auto &[name, type] : attributes) {
      const std::string n = "-" + std::to_string(++number);
      text += attribute("soif-attribute" + n, name) + attribute("system-table-name" + n, "t") +
              attribute("system-column-name" + n, name) + attribute("data-type" + n, type);
    }
    add_service("schema-description=\"" + service_.write("schema.rdm", text + "}\n") + "\"\n");
  }
  Finished publish(const std::string &stream, std::vector<std::string> words = {}) const {
    words.insert(words.begin(), {"--config", service_.config(), "publish", "--validate", csid, "-"});
    return rdmctl(words, stream);
  }
};

TEST_F(Validation, AcceptsWhatFits) {
  const Finished finished = publish(rd(url(1), {{"title", "T"},
                                                {"title-2", "U"},
                                                {"pages", " -12\n"},
                                                {"price", "1.5"},
                                                {"text", "\xff"},
                                                {"day", "Mon, 23 Nov 2026 02:14:33 GMT"},
                                                {"rd-expires", "never"},
                                                {"classification", "net"},
                                                {"classification-2", "food"}}));
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, "");
}

TEST_F(Validation, WarnsOfUnknownAttributesWrongTypesAndClasses) {
  const std::pair<std::pair<std::string, std::string>, std::string> cases[] = {
      {{"auhtor", "A"}, "the schema has no attribute auhtor"},
      {{"titles-2", "A"}, "the schema has no attribute titles-2"},
      {{"pages", "12 pages"}, "pages is not an integer: 12 pages"},
      {{"pages-3", ""}, ""},
      {{"id", "99999999999999999999"}, "id is not an integer: 99999999999999999999"},
      {{"price", "cheap"}, "price is not a number: cheap"},
      {{"day", "someday"}, "day is not a date: someday"},
      {{"classification", "sea"}, "the taxonomy has no class sea"},
      {{"classification-2", "Net"}, "the taxonomy has no class Net"},
  };
  for (const auto &[pair, text] : cases) {
    const Finished finished = publish(rd(url(1), {pair, {"title", "T"}}), {"--dry-run"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors,
              text.empty() ? "" : "rdmctl: the input: line 1: http://localhost/1: warning: " + text + "\n");
  }
}

TEST_F(Validation, KeepsWarningsInTheReport) {
  ASSERT_EQ(publish(rd(url(1), {{"auhtor", "A"}}) + rd(url(2), {{"title", "T"}})).status, 0);
  const Finished shown = rdmctl({"imports", "--json", "--last", "1", database()});
  const nlohmann::json report = nlohmann::json::parse(shown.out)[0];
  EXPECT_EQ(report["accepted"], 2);
  EXPECT_EQ(report["warned"], 1);
  EXPECT_EQ(report["warnings"][0]["reason"], "the schema has no attribute auhtor");
  EXPECT_THAT(
      rdmctl({"imports", "--last", "1", database()}).out,
      testing::EndsWith("  warning: the input: line 1: http://localhost/1: the schema has no attribute auhtor\n"));
}

TEST_F(Validation, RejectsThemIfStrict) {
  const std::string feed = rd(url(1), {{"auhtor", "A"}, {"classification", "sea"}}) + rd(url(2), {{"title", "new"}});
  const Finished finished = publish(feed, {"--strict", "--full-feed", "--max-delete", "1"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "0 new, 1 changed, 0 unchanged, 1 deleted, 0 expired, 1 rejected\n")
      << "a rejected object keeps its description";
  EXPECT_EQ(finished.errors,
            "rdmctl: the input: line 1: http://localhost/1: object 1 at byte 0 rejected: the schema has no attribute "
            "auhtor; the taxonomy has no class sea\n");
  EXPECT_EQ(publish(rd(url(1), {{"auhtor", "A"}}), {"--strict"}).status, 2) << "nothing is left";
}

TEST_F(Validation, NeedsAServiceWithASchemaOrATaxonomy) {
  EXPECT_EQ(rdmctl({"publish", "--validate", database(), "-"}).errors,
            "rdmctl: --validate needs a catalog service: name the configuration with --config\n");
  EXPECT_EQ(rdmctl({"--config", service_.config(), "publish", "--validate", database(), "-"}).errors,
            "rdmctl: no catalog service " + database() + " in " + service_.config() + "\n");
  service_.write("csid.conf", "csid=\"" + csid + "\"\ncatalog-database=\"" + database() + "\"\n");
  EXPECT_EQ(publish("").errors, "rdmctl: catalog service " + csid +
                                    " has neither schema-description nor taxonomy-description in " + service_.config() +
                                    "\n");
  add_service("schema-description=\"/nowhere/s\"\n");
  EXPECT_EQ(publish("").errors, "rdmctl: not a schema description: /nowhere/s\n");
}

Finished describe(const std::string &kind, const std::string &text, std::vector<std::string> words = {}) {
  words.insert(words.begin(), {"describe", kind});
  return rdmctl(words, text);
}

std::string header(const std::string &kind) {
  return "@RDMHEADER { -\n" + attribute("rdm-version", "1.0") + attribute("rdm-type", kind + "-description-response");
}

TEST(Describe, CountsTheBytesOfAServerDescription) {
  const Finished finished = describe("server",
                                     "# for the front page\n@SERVER x-catalog://h:1/x\ntitle:  T\xc3\xa4 \r\n"
                                     "text: one\n  two\n  .\n\tthree\n\nempty:\n",
                                     {"--csid", "x-catalog://h:1/x"});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, header("server") + attribute("catalog-service-id", "x-catalog://h:1/x") +
                              "}\n\n@SERVER { x-catalog://h:1/x\n" + attribute("title", "T\xc3\xa4") +
                              attribute("text", "one\ntwo\n\nthree") + attribute("empty", "") + "}\n");
}

TEST(Describe, NumbersTheColumnsOfASchema) {
  const Finished finished =
      describe("schema", "@SCHEMA s\nschema-name: S\nid = t.id serial internal\ntitle=t.title\nday = t.day date\n");
  EXPECT_EQ(finished.status, 0) << finished.errors;
  const auto column = [](const std::string &n, const std::string &name, const std::string &type) {
    return attribute("soif-attribute-" + n, name) + attribute("system-table-name-" + n, "t") +
           attribute("system-column-name-" + n, name) + attribute("data-type-" + n, type);
  };
  EXPECT_EQ(finished.out, header("schema") + "}\n\n@SCHEMA { s\n" + attribute("schema-name", "S") +
                              column("1", "id", "serial") + attribute("is-internal-1", "1") +
                              column("2", "title", "string") + column("3", "day", "date") + "}\n");
}

TEST(Describe, MakesATaxonomyOfAnIndentedList) {
  const support::TemporaryDirectory directory;
  const std::string file = directory.path("tax");
  const Finished finished = describe("taxonomy",
                                     "@TAXONOMY http://h/t\nid: subjects\n- net: Networks\n  - net.link\n"
                                     "    - net.link.x: X\n- food: Food\n",
                                     {"-o", file});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(rdmctl({"taxonomy", "show", file}).out,
            "subjects\n  net: Networks\n    net.link\n      net.link.x: X\n  food: Food\n");
  EXPECT_EQ(rdmctl({"taxonomy", "check", file}).out, "sound: 4 classes\n");
}

TEST(Describe, NamesTheLineThatItDoesNotUnderstand) {
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"server", "title: T\n", "1: no object yet: begin with @TEMPLATE URL"},
      {"server", "@\n", "1: not of the form @TEMPLATE URL"},
      {"server", "@A b c\n", "1: not of the form @TEMPLATE URL"},
      {"server", "\n@A{ b\n", "2: not of the form @TEMPLATE URL"},
      {"server", "@SCHEMA b\n", "1: a server description has no object @SCHEMA"},
      {"schema", "@schema b\n@SERVER b\n", "2: a schema description has no object @SERVER"},
      {"taxonomy", "@SERVER b\n", "1: a taxonomy description has no object @SERVER"},
      {"server", "@SERVER b\nno value\n", "2: not of the form NAME: VALUE"},
      {"server", "@SERVER b\na name: x\n", "2: not of the form NAME: VALUE"},
      {"server", "@SERVER b\n  more\n", "2: an indented line continues a value, and there is none"},
      {"server", "@SERVER b\na = t.c\n", "2: only a schema has columns"},
      {"schema", "@SCHEMA b\na = t\n", "2: not of the form NAME = TABLE.COLUMN [TYPE] [internal]"},
      {"schema", "@SCHEMA b\na =\n", "2: not of the form NAME = TABLE.COLUMN [TYPE] [internal]"},
      {"schema", "@SCHEMA b\na = .c\n", "2: not of the form NAME = TABLE.COLUMN [TYPE] [internal]"},
      {"schema", "@SCHEMA b\na = t.c text\n",
       "2: unknown type text: not one of int, serial, date, string, float, blob"},
      {"taxonomy", "@TAXONOMY b\n- c: C\n", "2: a class before the id of the taxonomy"},
      {"taxonomy", "@TAXONOMY b\nid: i\n- a b: C\n", "3: not of the form - ID: DESCRIPTION"},
  };
  for (const auto &[kind, text, reason] : cases) {
    const Finished finished = describe(kind, text);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "rdmctl: the input:" + reason + "\n");
  }
}

TEST(Describe, WritesNoTaxonomyThatTaxonomyCheckFaults) {
  const std::pair<std::string, std::string> rows[] = {
      {"- a: A\n- a: B\n", "17: error: the class \"a\" is there twice"},
      {"@CLASSIFICATION -\nid: a\nparent-id: ROOT\n",
       "10: error: the class \"a\" is omitted: it has no \"taxonomy-id\""},
  };
  for (const auto &[classes, fault] : rows) {
    const Finished finished = describe("taxonomy", "@TAXONOMY http://h/t\nid: T\n" + classes);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "rdmctl: the description:" + fault + "\nrdmctl: nothing is written\n");
  }
}

TEST(Describe, ChecksTheCsid) {
  const std::string text = "@SERVER -\ntitle: T\n";
  const Finished warned = describe("server", text, {"--csid", "books"});
  EXPECT_EQ(warned.status, 0);
  EXPECT_EQ(warned.errors, "rdmctl: --csid: warning: \"books\" is not of the form x-catalog://HOST:PORT/NAME\n");
  EXPECT_THAT(warned.out, HasSubstr(attribute("catalog-service-id", "books")));
  const Finished refused = describe("server", text, {"--csid", "x-catalog://h:1/a\nb"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.errors,
            "rdmctl: --csid: error: \"x-catalog://h:1/a\\x0ab\" has a control character\n"
            "rdmctl: nothing is written\n");
}

TEST(Describe, WritesNothingThatTheCheckerRefuses) {
  const Finished finished = describe("server", "# nothing\n");
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.errors,
            "rdmctl: the description: error: no object follows the RDMHEADER object\nrdmctl: nothing is written\n");
  EXPECT_EQ(rdmctl({"describe", "server", "/nowhere/s"}).errors,
            "rdmctl: cannot read /nowhere/s: No such file or directory\n");
  EXPECT_EQ(rdmctl({"describe", "server", "/"}).errors, "rdmctl: cannot read /: Is a directory\n");
}

}  // namespace
