// SPDX-License-Identifier: MIT
/// The example catalogs have exact byte counts, known attributes and valid dates, and their configurations load without
/// a diagnostic.
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "examples/catalogs.h"
#include "service/alias.h"
#include "service/csid.h"
#include "service/schema.h"
#include "support/diagnostics.h"
#include "support/directories.h"
#include "support/files.h"

namespace rdm::examples {

TEST_P(Examples, HoldTheDescriptionsTheyClaim) {
  const std::vector<Object> objects = descriptions();
  EXPECT_EQ(objects.size(), GetParam().descriptions);
  std::set<std::string> urls;
  for (const Object &object : objects) {
    EXPECT_EQ(object.template_name, "FILE");
    EXPECT_TRUE(urls.insert(object.url).second) << "twice: " << object.url;
    for (const std::string &required : GetParam().required)
      EXPECT_EQ(object.attributes.count(required), 1U) << object.url << " has no " << required;
  }
}

TEST_P(Examples, CountEveryByteExactly) {
  // The printer writes the attributes in the same form but in another order, without empty lines between objects.
  for (const std::string file : {"rds.soif", "server.rdm", "schema.rdm", "taxonomy.rdm"}) {
    const std::string text = support::read_file(example(name(file)));
    const std::vector<Object> objects = parse(text);
    size_t printed = 0;
    for (const Object &object : objects) printed += object.printed.size();
    EXPECT_EQ(printed + objects.size() - (file == "rds.soif" ? 0 : 1), text.size()) << file;
  }
}

TEST_P(Examples, PrintAndParseToTheSameObjects) {
  for (const std::string file : {"rds.soif", "server.rdm", "schema.rdm", "taxonomy.rdm"}) {
    for (const Object &object : parse_example(name(file))) {
      const std::vector<Object> again = parse(object.printed);
      ASSERT_EQ(again.size(), 1U) << object.url;
      EXPECT_EQ(again[0].template_name, object.template_name);
      EXPECT_EQ(again[0].url, object.url);
      EXPECT_EQ(again[0].attributes, object.attributes) << object.url;
      EXPECT_EQ(again[0].printed, object.printed) << object.url;
    }
  }
}

TEST_P(Examples, DatesAreWrittenAsTheServerWritesThem) {
  size_t dated = 0;
  for (const Object &object : descriptions()) {
    const auto date = object.attributes.find("last-modified");
    if (date == object.attributes.end()) continue;
    ++dated;
    time_t time = 0;
    cs_str2time(date->second.c_str(), &time);
    char text[64];
    cs_time2str(time, text, sizeof text);
    EXPECT_EQ(date->second, text) << object.url;
  }
  EXPECT_EQ(dated, GetParam().dated);
}

TEST_P(Examples, SchemaNamesEveryAttributeInUse) {
  const support::Diagnostics log;
  ASSERT_EQ(schema_translate_init(example(name("schema.rdm")).c_str()), 0);
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(schema_name(), parse_example(name("schema.rdm")).at(1).attributes.at("schema-name"));
  for (const Object &object : descriptions())
    for (const auto &[attribute, value] : object.attributes) {
      char column[256];
      EXPECT_NE(schema_translate_soifattribute(base_name(attribute).c_str(), column), nullptr)
          << object.url << ": " << attribute;
    }
}

TEST_P(Examples, DescriptionsBeginWithTheHeaderOfTheAnswer) {
  for (const std::string kind : {"server", "schema", "taxonomy"}) {
    const std::string text = support::read_file(example(name(kind + ".rdm")));
    const std::string type = kind + "-description-response";
    const std::string csid = GetParam().csid;
    const std::string header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{" + std::to_string(type.size()) +
                               "}:\t" + type + "\ncatalog-service-id{" + std::to_string(csid.size()) + "}:\t" + csid +
                               "\n}\n\n";
    EXPECT_EQ(text.substr(0, header.size()), header);
    EXPECT_GT(parse(text).size(), 1U) << kind;
  }
}

INSTANTIATE_TEST_SUITE_P(Catalogs, Examples, ::testing::ValuesIn(catalogs()),
                         [](const auto &catalog) { return catalog.param.directory; });

TEST(ExampleRequests, AreWholeMessages) {
  for (const auto &[name, type, objects] : std::vector<std::tuple<std::string, std::string, size_t>>{
           {"status", "status-request", 1}, {"all", "rd-request", 2}, {"since", "rd-request", 2}}) {
    const std::string text = support::read_file(example("requests/" + name + ".rdm"));
    const std::vector<Object> parsed = parse(text);
    ASSERT_EQ(parsed.size(), objects) << name;
    EXPECT_EQ(parsed[0].template_name, "RDMHEADER");
    EXPECT_EQ(parsed[0].attributes.at("rdm-type"), type);
    if (objects == 2) {
      EXPECT_EQ(parsed[1].template_name, "RDMQUERY");
    }
    size_t printed = 0;
    for (const Object &object : parsed) printed += object.printed.size();
    // The empty line, and one byte more if there is no body: a message must continue after its empty line.
    EXPECT_EQ(text.size(), printed + (objects == 1 ? 2 : 1)) << name;
  }
}

TEST(ExampleAliases, NameEachThingOnce) {
  const support::Diagnostics log;
  pblock *to_parent = nullptr;
  pblock *to_aliases = nullptr;
  ASSERT_EQ(alias_init(&to_parent, &to_aliases, example("rfc/aliases").c_str()), 0);
  EXPECT_EQ(log.text(), "");
  EXPECT_STREQ(alias_to_parent(to_parent, "rfc793"), "tcp");
  EXPECT_STREQ(alias_to_parent(to_parent, "http"), "http");
  EXPECT_STREQ(parent_to_aliases(to_aliases, "udp"), "rfc768");
  alias_destroy(to_parent, to_aliases);
}

/// The configuration templates as files of a temporary directory, with their directories filled in.
class ExampleConfiguration : public ::testing::Test {
 protected:
  std::string fill_in(const std::string &file) {
    std::string text = support::read_file(example(file + ".in"));
    text = std::regex_replace(text, std::regex("@VAR@"), directory_.path());
    text = std::regex_replace(text, std::regex("@BIN@"), support::in_build("bin"));
    text = std::regex_replace(text, std::regex("@EXAMPLES@"), support::in_source("examples"));
    EXPECT_EQ(text.find("=\"@"), std::string::npos);
    return directory_.write(file, text);
  }

  support::TemporaryDirectory directory_;
};

TEST_F(ExampleConfiguration, NamesTwoServicesWithTheirFiles) {
  const support::Diagnostics log;
  csid_init(fill_in("csid.conf").c_str(), "x-catalog://localhost:8380/rfc");
  for (const char *csid : {"x-catalog://localhost:8380/rfc", "x-catalog://localhost:8380/classics"}) {
    ASSERT_NE(csid_find(csid), nullptr) << csid;
    EXPECT_NE(csid_findval("catalog-database", csid), nullptr) << csid;
    for (const char *key : {"server-description", "schema-description", "taxonomy-description"}) {
      const char *path = csid_findval(key, csid);
      ASSERT_NE(path, nullptr) << csid << " " << key;
      EXPECT_TRUE(support::file_exists(path)) << path;
    }
  }
  EXPECT_NE(csid_finda2p("x-catalog://localhost:8380/rfc"), nullptr);
  EXPECT_EQ(csid_finda2p("x-catalog://localhost:8380/classics"), nullptr);
  EXPECT_EQ(log.text(), "");
  csid_terminate();
}

TEST_F(ExampleConfiguration, HoldsEveryKeyOfTheService) {
  const std::string text = support::read_file(fill_in("rdm.conf"));
  const PblockPtr block(host_param_create(15));
  for (size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    if (text[at] != '#') host_param_parse(text.substr(at, end - at).c_str(), block.get());
  for (const char *key :
       {"bindir", "csid-config", "csid-default", "logfile", "debug-logfile", "debug-loglevel", "tmpdir"})
    EXPECT_NE(host_param_find(key, block.get()), nullptr) << key;
  EXPECT_STREQ(host_param_find("csid-default", block.get()), "x-catalog://localhost:8380/rfc");
}

}  // namespace rdm::examples
