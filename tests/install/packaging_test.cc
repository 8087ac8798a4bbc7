// SPDX-License-Identifier: MIT
/// What connects the installed server to a Debian system: packages, default configuration, units.

#include <fnmatch.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;
using Replacements = std::vector<std::pair<std::string, std::string>>;

constexpr const char *prefix = "/usr/local";

Lines lines_of(const std::string &text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

Lines lines_of_source(const std::string &name) { return lines_of(support::read_file(support::in_source(name))); }

std::string replaced(std::string text, const Replacements &replacements) {
  for (const auto &[from, to] : replacements)
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
  return text;
}

/// first_match returns the first group of a pattern in the first line that it fits, or an empty text.
std::string first_match(const Lines &lines, const std::string &pattern) {
  std::smatch match;
  for (const std::string &line : lines)
    if (std::regex_search(line, match, std::regex(pattern))) return match.str(1);
  return {};
}

/// number_of reads a number that may end in K, M or G.
double number_of(const std::string &text) {
  char *end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  const std::map<std::string, double> units = {{"", 1}, {"K", 1 << 10}, {"M", 1 << 20}, {"G", 1 << 30}};
  return number * units.at(end);
}

/// packaged_paths returns the patterns of debian/*.install, as paths of an installation under another prefix.
Lines packaged_paths() {
  const Replacements places = {{"usr/lib/*/", "usr/local/" LIBRARY_DIR "/"},
                               {"usr/share/doc/rdm-doc", "usr/local/" DOCUMENT_DIR},
                               {"vendor-completions", "site-functions"},
                               {"usr/local/", "usr/"},
                               {"usr/", "usr/local/"}};
  Lines paths;
  for (const fs::directory_entry &entry : fs::directory_iterator(support::in_source("debian")))
    if (entry.path().extension() == ".install")
      for (const std::string &line : lines_of(support::read_file(entry.path())))
        paths.push_back(replaced(line.substr(0, line.find(' ')), places));
  return paths;
}

/// covers returns true if a pattern of dh_install fits a file, or a directory above it.
bool covers(const std::string &pattern, fs::path file) {
  for (; !file.empty(); file = file.parent_path())
    if (::fnmatch(pattern.c_str(), file.c_str(), FNM_PATHNAME) == 0) return true;
  return false;
}

class Packaging : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const support::Environment staging("DESTDIR", stage.emplace().path().c_str());
    const support::Finished done = support::run({CMAKE, "--install", support::in_build(), "--prefix", prefix});
    ASSERT_EQ(done.status, 0) << done.errors;
  }

  static void TearDownTestSuite() { stage.reset(); }

  static std::string staged(const std::string &name = "") { return stage->path("usr/local/" + name); }

  /// places returns what stands for the directories of the installed system.
  static Replacements places() {
    return {{"/var/log/rdm", here()},
            {"/var/lib/rdm/tmp", here()},
            {"/var/lib/rdm", here()},
            {"/etc/rdm", here()},
            {"/usr/local/" DOCUMENT_DIR "/examples", support::in_source("examples")},
            {"/usr/local/bin", support::in_build("bin")},
            {"/usr/local/lib", support::in_build("lib")}};
  }

  static std::string here() { return stage->path("system"); }

  /// configure writes the default configuration to here(). Examples and defaults in comments apply too if `all`; but
  /// no addresses and certificates.
  static void configure(bool all) {
    fs::create_directories(here());
    for (const char *name : {"rdm.conf", "csid.conf", "rdmd.toml"}) {
      std::string text = support::read_file(staged("share/rdm/etc/rdm/") + name);
      if (all) text = std::regex_replace(text, std::regex("(^|\n)#(?!listen|tls-|admin)([a-z-]+ ?=)"), "$1$2");
      support::write_file(here() + "/" + name, replaced(std::move(text), places()));
    }
  }

  /// make_example makes the catalog of the first example.
  static void make_example() {
    fs::create_directories(here());
    const support::Finished made = support::run({support::in_build("bin/rdmctl"), "publish", "--quiet",
                                                 here() + "/rfc.db", support::in_source("examples/rfc/rds.soif")});
    EXPECT_EQ(made.status, 0) << made.errors;
  }

  static support::Finished check() {
    return support::run({support::in_build("bin/rdmd"), "--check", "--options", here() + "/rdmd.toml"});
  }

 private:
  static inline std::optional<support::TemporaryDirectory> stage;
};

TEST_F(Packaging, EveryInstalledFileIsInOnePackage) {
  const Lines patterns = packaged_paths();
  std::map<std::string, int> used;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(staged())) {
    if (entry.is_directory() && !entry.is_symlink()) continue;
    const std::string file = "usr/local/" + entry.path().lexically_relative(staged()).string();
    int packages = 0;
    for (const std::string &pattern : patterns)
      if (covers(pattern, file)) ++packages, ++used[pattern];
    EXPECT_EQ(packages, 1) << file;
  }
  for (const std::string &pattern : patterns) EXPECT_GT(used[pattern], 0) << pattern;
}

TEST_F(Packaging, DefaultConfigurationServesNoCatalog) {
  configure(false);
  const support::Finished checked = check();
  EXPECT_EQ(checked.errors, here() + "/csid.conf: warning: lists no catalog service\n");
  EXPECT_EQ(checked.status, 0);
}

TEST_F(Packaging, ExamplesInTheConfigurationAreValid) {
  configure(true);
  make_example();
  support::write_file(here() + "/rdm.conf",
                      replaced(support::read_file(here() + "/rdm.conf"), {{"csid-default=\"unknown\"\n", ""}}));
  const support::Finished checked = check();
  EXPECT_EQ(checked.errors, "");
  EXPECT_EQ(checked.status, 0);
}

TEST_F(Packaging, DefaultConfigurationNamesEveryOption) {
  const std::string help = support::run({support::in_build("bin/rdmd"), "--help"}).out;
  const Lines defaults = lines_of(support::read_file(staged("share/rdm/etc/rdm/rdmd.toml")));
  const std::regex option("\n  --([a-z-]+)");
  for (std::sregex_iterator found(help.begin(), help.end(), option), end; found != end; ++found) {
    const std::string name = found->str(1);
    if (std::string(" help version options check user ").find(" " + name + " ") != std::string::npos) continue;
    EXPECT_NE(first_match(defaults, "^#?(" + name + ") = "), "") << name;
  }
}

TEST_F(Packaging, DefaultConfigurationShowsTheDefaults) {
  const Lines help = lines_of(support::run({support::in_build("bin/rdmd"), "--help"}).out);
  const std::regex shown("^#([a-z-]+) = \"?([0-9.]+[KMG]?)\"?$");
  int numbers = 0;
  for (const std::string &line : lines_of(support::read_file(staged("share/rdm/etc/rdm/rdmd.toml")))) {
    std::smatch match;
    if (!std::regex_match(line, match, shown)) continue;
    const std::string value = first_match(help, "^  --" + match.str(1) + " .*=([0-9.]+)$");
    // Other defaults depend on the machine or on another option.
    if (value.empty() || match.str(1) == "workers" || match.str(1) == "threads") continue;
    EXPECT_EQ(number_of(match.str(2)), number_of(value)) << line;
    ++numbers;
  }
  EXPECT_GT(numbers, 0);
}

TEST_F(Packaging, ContainerIsConfiguredByItsEnvironment) {
  make_example();
  Replacements where = places();
  where.insert(
      where.begin(),
      {{"/etc/rdm", support::in_source("examples")}, {"/run/rdm", here()}, {"/usr/bin", support::in_build("bin")}});
  const std::string entry = here() + "/entry";
  support::write_file(entry, replaced(support::read_file(support::in_source("packaging/oci/rdmd-container")), where));
  const support::Environment path("PATH", (support::in_build("bin") + ":/usr/bin:/bin").c_str());
  const support::Environment catalogs("RDM_CATALOGS", "rfc");
  const support::Environment listen("RDMD_LISTEN", "127.0.0.1:0 127.0.0.2:0");
  const support::Finished checked = support::run({"/bin/sh", entry, "check"});
  EXPECT_EQ(checked.errors, "");
  EXPECT_EQ(checked.status, 0);
  EXPECT_EQ(
      support::read_file(here() + "/csid.conf"),
      replaced("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"/var/lib/rdm/rfc.db\"\n"
               "alias-file=\"/etc/rdm/rfc/aliases\"\nserver-description=\"/etc/rdm/rfc/server.rdm\"\n"
               "schema-description=\"/etc/rdm/rfc/schema.rdm\"\ntaxonomy-description=\"/etc/rdm/rfc/taxonomy.rdm\"\n",
               where));
  const support::Environment wrong("RDMD_MAX_CONNECTIONS", "many");
  EXPECT_EQ(support::run({"/bin/sh", entry, "check"}).status, 2);
}

TEST_F(Packaging, VersionsAgree) {
  EXPECT_EQ(first_match(lines_of_source("debian/changelog"), "^rdm \\((.*)\\)"), VERSION);
  EXPECT_EQ(first_match(lines_of_source("CHANGELOG.md"), "^## ([0-9.]+)"), VERSION);
}

TEST_F(Packaging, UnitsAreWellFormed) {
  Lines command = {SYSTEMD_ANALYZE, "verify", "--man=no"};
  fs::create_directories(here());
  for (const fs::directory_entry &entry : fs::directory_iterator(staged("lib/systemd/system"))) {
    const std::string unit = here() + "/" + entry.path().filename().string();
    support::write_file(unit, replaced(support::read_file(entry.path()), {{prefix, staged()}}));
    command.push_back(unit);
  }
  const support::Finished verified = support::run(command);
  EXPECT_EQ(verified.errors, "");
  EXPECT_EQ(verified.status, 0);
}

TEST_F(Packaging, UnitsConfineTheirProcesses) {
  for (const char *unit : {"rdmd.service", "rdmd@.service", "rdm-publish@.service"}) {
    const support::Finished found = support::run(
        {SYSTEMD_ANALYZE, "security", "--offline=yes", "--threshold=15", staged("lib/systemd/system/") + unit});
    EXPECT_EQ(found.status, 0) << unit << ": " << found.out << found.errors;
  }
}

TEST_F(Packaging, TheUnitNamesItsAppArmorProfile) {
  const std::string profile =
      first_match(lines_of(support::read_file(staged("share/rdm/etc/apparmor.d/rdmd"))), "^profile ([^ ]+) ");
  EXPECT_EQ(profile, "rdmd");
  for (const char *unit : {"rdmd.service", "rdmd@.service"}) {
    const Lines lines = lines_of(support::read_file(staged("lib/systemd/system/") + unit));
    EXPECT_EQ(first_match(lines, "^AppArmorProfile=-(.*)$"), profile) << unit;
  }
}

}  // namespace
