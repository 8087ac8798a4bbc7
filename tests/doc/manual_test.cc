// SPDX-License-Identifier: MIT
/// The manual pages beside the code that they describe.

#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/rdmd/check/check.h"
#include "hosts/rdmd/check/csid.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;

using Names = std::set<std::string>;

/// System pages that ours refer to.
const Names system_pages = {"curl(1)",  "head(1)",   "pdfinfo(1)", "pdftotext(1)", "vi(1)",
                            "flock(2)", "fchown(2)", "fsync(2)",   "libmagic(3)",  "sd_notify(3)"};

std::string page_of(const std::string &name) { return support::read_file(support::in_source("doc/man/" + name)); }

/// matches returns what the first group of an expression matches in a text.
Names matches(const std::string &text, const std::string &expression) {
  const std::regex pattern(expression, std::regex::ECMAScript | std::regex::multiline);
  Names found;
  for (auto at = std::sregex_iterator(text.begin(), text.end(), pattern); at != std::sregex_iterator(); ++at)
    found.insert(at->str(1));
  return found;
}

/// keys_of returns the names that a page explains: the variables that begin the items of its lists.
Names keys_of(const std::string &page) { return matches(page_of(page), "^\\.It Va ([a-z-]+)"); }

template <typename List>
Names set_of(const List &list) {
  return {list.begin(), list.end()};
}

/// pages returns the paths of all pages by the names by which they are referred to, such as "rdm(7)".
std::map<std::string, std::string> pages() {
  std::map<std::string, std::string> found;
  for (const std::string &directory : {support::in_source("doc/man/"), std::string(MADE_PAGES)})
    for (const fs::directory_entry &entry : fs::directory_iterator(directory)) {
      const fs::path &file = entry.path();
      found[file.stem().string() + "(" + file.extension().string().substr(1) + ")"] = file;
    }
  return found;
}

/// exported_names returns the names that the version scripts of the libraries export.
Names exported_names() {
  Names names;
  for (const char *map : {"qxapi/qxapi.map", "libcs/libcs.map", "dba/libdba.map", "service/librdm.map"})
    names.merge(matches(support::read_file(support::in_source(map)), "^    (\\w+);$"));
  return names;
}

std::string help_of(const std::string &program, const std::string &verb = "") {
  std::vector<std::string> command = {support::in_build("bin/" + program), verb, "--help"};
  std::erase(command, "");
  return support::run(command).out;
}

/// options_of returns the options that the help of a program, or of one of its verbs, names.
Names options_of(const std::string &program, const std::string &verb = "") {
  const std::string help = help_of(program, verb);
  Names options = matches(help, "^  (?:-\\w,)?--([a-z-]+)");
  options.merge(matches(help, "^  --[a-z-]+,--([a-z-]+)"));
  return options;
}

/// all_options_of returns the options of a program and of all its verbs.
Names all_options_of(const std::string &program) {
  const std::string help = help_of(program);
  const size_t verbs = help.find("\nVerbs:\n");
  Names options = options_of(program);
  if (verbs == std::string::npos) return options;
  for (const std::string &verb : matches(help.substr(verbs), "^  ([a-z]+) "))
    if (verb != "help" && verb != "completion") options.merge(options_of(program, verb));
  return options;
}

/// faults_of returns what mandoc says of pages, except about references: it looks for those among the installed pages.
std::string faults_of(const std::set<fs::path> &files) {
  std::vector<std::string> command = {MANDOC, "-T", "lint"};
  command.insert(command.end(), files.begin(), files.end());
  std::istringstream lines(support::run(command).out);
  std::string faults;
  for (std::string line; std::getline(lines, line);)
    if (line.find("referenced manual not found") == std::string::npos) faults += line + "\n";
  return faults;
}

TEST(ManualPages, AreWellFormed) {
  std::set<fs::path> files;
  for (const auto &[name, file] : pages()) files.insert(fs::canonical(file));
  EXPECT_EQ(faults_of(files), "");
}

TEST(ManualPages, ReferToPagesThatExist) {
  const auto all = pages();
  for (const auto &[name, file] : all) {
    const std::string text = support::read_file(file);
    const std::regex reference("\\bXr (\\S+) (\\d)");
    for (auto at = std::sregex_iterator(text.begin(), text.end(), reference); at != std::sregex_iterator(); ++at) {
      const std::string target = at->str(1) + "(" + at->str(2) + ")";
      EXPECT_TRUE(all.contains(target) || system_pages.contains(target)) << name << " refers to " << target;
    }
  }
}

TEST(ManualPages, HaveTheNamesOfTheirFiles) {
  for (const auto &[name, file] : pages()) {
    const fs::path path(fs::canonical(file));
    std::string title = path.stem();
    for (char &character : title) character = static_cast<char>(std::toupper(character));
    EXPECT_THAT(support::read_file(file),
                HasSubstr("\n.Dt " + title + " " + path.extension().string().substr(1) + "\n"));
  }
}

TEST(ManualPages, DescribeEveryExportedName) {
  const Names exported = exported_names();
  EXPECT_THAT(exported, IsSupersetOf({"host_alloc", "csqueue_peek", "dba_open", "rdm_service"}));
  const auto all = pages();
  for (const std::string &name : exported) {
    const auto page = all.find(name + "(3)");
    ASSERT_NE(page, all.end()) << name;
    const std::string text = support::read_file(page->second);

    EXPECT_THAT(matches(text, "^\\.Nm (\\S+)"), Contains(name));
    EXPECT_THAT(matches(text, "^\\.(?:Fo|Va) (\\w+)(?: ;)?$"), Contains(name));
  }
}

TEST(ManualPages, ExplainEveryNameOfTheServiceConfiguration) {
  EXPECT_EQ(keys_of("rdm.conf.5"), set_of(check::setting_names()));
  const std::string reader = support::read_file(support::in_source("service/rdmsvr/init.cc"));
  EXPECT_EQ(keys_of("rdm.conf.5"), matches(reader, "host_param_find\\(\"([a-z-]+)\", config\\)"));
}

TEST(ManualPages, ExplainEveryNameOfACatalogService) {
  EXPECT_EQ(keys_of("csid.conf.5"), set_of(check::service_names()));
}

TEST(ManualPages, ExplainEveryKeyOfTheOptionsFile) {
  Names options = options_of("rdmd");
  for (const char *refused : {"help", "version", "options"}) EXPECT_EQ(options.erase(refused), 1u) << refused;
  EXPECT_EQ(keys_of("rdmd.toml.5"), options);
}

/// reasons_in_the_page returns the refusals that rdm-messages(5) lists, without what varies in them.
Names reasons_in_the_page() {
  const std::string page = page_of("rdm-messages.5");
  Names reasons;
  for (std::string item : matches(page.substr(page.find(".Ss Refusals")), "^\\.It Li ([A-Z].*)$")) {
    item = std::regex_replace(item, std::regex(R"(\\&| Ar csid| Ns Ar type Li)"), "");
    for (size_t at = item.find(" , "); at != std::string::npos; at = item.find(" , ")) {
      reasons.insert(item.substr(0, at));
      item.erase(0, at + 3);
    }
    reasons.insert(item);
  }
  return reasons;
}

/// reasons_in_the_code returns those of the service.
Names reasons_in_the_code() {
  Names reasons;
  for (const char *file :
       {"service/rdmsvr/intake.cc", "service/rds/request.cc", "service/rdmlib.cc", "libcs/extra/rdm_query.cc"}) {
    const std::string code = support::read_file(support::in_source(file));
    reasons.merge(matches(
        code, "(?:\\{|refuse\\(|format_text\\(|return |RDM_[A-Z_]+RESPONSE,\\s*|sizeof text, )\"([A-Z][^\"]*)\""));
  }
  Names texts;
  for (const std::string &reason : reasons) texts.insert(std::regex_replace(reason, std::regex(R"( ?%s|\\n)"), ""));
  return texts;
}

TEST(ManualPages, ExplainEveryRefusal) {
  Names reasons = reasons_in_the_code();
  EXPECT_EQ(reasons.erase("Illegal RDM interaction."), 1u);  // of status_illegal, to which no message leads
  EXPECT_EQ(reasons_in_the_page(), reasons);
}

TEST(ManualPages, NameExactlyTheOptionsOfTheirProgram) {
  for (const char *page : {"minidba.8", "rdm.1", "rdmctl.8", "rdmd.8", "rdmgather.1", "soif.1"}) {
    Names named;
    for (const std::string &flags : matches(page_of(page), "^\\.(.*Fl .*)$"))
      named.merge(matches(flags, "(?:Fl|,|\\|) -([a-z-]+)"));
    EXPECT_EQ(named, all_options_of(fs::path(page).stem())) << page;
  }
}

TEST(ManualPages, ExplainEveryOptionOfTheServer) {
  const std::string page = page_of("rdmd.8");
  Names explained;
  for (const std::string &item : matches(page, "^\\.It (Fl -.*)$")) explained.merge(matches(item, "Fl -([a-z-]+)"));
  EXPECT_EQ(explained, options_of("rdmd"));
}

}  // namespace
