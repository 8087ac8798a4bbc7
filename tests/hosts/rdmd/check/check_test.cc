// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/check.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/check/catalog_files.h"
#include "hosts/rdmd/rdmd_process.h"
#include "support/directories.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

/// Check has a directory with a valid configuration, which each test changes. "@" stands for the directory.
class Check : public ::testing::Test {
 protected:
  Check() {
    std::filesystem::create_directory(directory_.path("bin"));
    directory_.write("bin/minidba", "#!/bin/sh\n");
    ::chmod(directory_.path("bin/minidba").c_str(), 0755);
    catalog("rfc.db");
    directory_.write("server.rdm", header());
    services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/rfc.db\"\n");
    config("");
  }

  static std::string replaced(std::string text, const std::string &what, const std::string &by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
      text.replace(at, what.size(), by);
    return text;
  }
  std::string here(const std::string &text) const { return replaced(text, "@/", directory_.path() + "/"); }

  /// catalog makes a database and its index.
  void catalog(const std::string &name) const {
    const support::Descriptions descriptions = {{1, {"one", 10}}, {2, {"two", 20}}};
    support::make_database(directory_.path(name), support::records_of(descriptions));
    directory_.write(name + ".idx", support::index_of(descriptions));
  }
  void write(const std::string &name, const std::string &text) { directory_.write(name, text); }
  void services(const std::string &text) { directory_.write("csid.conf", here(text)); }
  /// config writes the three required lines and `more` after them, from line 4 on.
  void config(const std::string &more) {
    whole_config("bindir=\"@/bin\"\ncsid-config=\"@/csid.conf\"\ncsid-default=\"x-catalog://localhost:8380/rfc\"\n" +
                 more);
  }
  void whole_config(const std::string &text) { directory_.write("rdm.conf", here(text)); }

  /// found returns all findings, with "@" for the directory.
  std::string found() const { return text_of(check::check_configuration(directory_.path("rdm.conf"))); }
  std::string found_in_lines() const { return text_of(check::check_syntax(directory_.path("rdm.conf"))); }
  std::string text_of(const check::Findings &findings) const {
    std::string text;
    for (const check::Finding &finding : findings) text += check::describe(finding) + "\n";
    return replaced(text, directory_.path() + "/", "@/");
  }

  static std::string header() {
    return "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{27}:\tserver-description-response\n}\n\n\n"
           "@SERVER { -\ntitle{5}:\tBooks\n}\n";
  }

  support::TemporaryDirectory directory_;
};

TEST_F(Check, FindsNothingInAValidConfiguration) {
  config("# a remark\n\nlogfile=\"@/rdm.log\" debug-logfile=stderr\r\ndebug-loglevel=\"-1\"\ntmpdir=\"@/\"\n");
  services(
      "# services\n\ncsid=\"x-catalog://localhost:8380/rfc\" catalog-database=\"@/rfc.db\"\n"
      "server-description=\"@/server.rdm\" alias-file=@/aliases\n\n"
      "csid=\"x-catalogs://localhost:8380/two\"\ncatalog-database=\"@/rfc.db\"\n");
  write("aliases", "# parent aliases\n\ntcp rfc793\tstd7\ndns\ntcp transport\n");
  EXPECT_EQ(found(), "");
  EXPECT_EQ(found_in_lines(), "");
}

TEST_F(Check, NamesFileAndLineOfEachMistakeInTheServiceConfiguration) {
  const struct {
    const char *lines, *expected;
  } cases[] = {
      {"logfile=\"@/rdm.log\n", "@/rdm.conf:4: error: the quote after logfile= is not closed\n"},
      {"\n#\ntmpdir=\"@/\" # here\n", "@/rdm.conf:6: error: \"#\" is not a name=\"value\" pair\n"},
      {"a word or two\n", "@/rdm.conf:4: error: \"a\" is not a name=\"value\" pair\n"},
      {"=value\n", "@/rdm.conf:4: error: the value \"value\" has no name\n"},
      {" # indented\n", "@/rdm.conf:4: error: \"#\" is not a name=\"value\" pair\n"},
      {"debug-loglevel = 1\n", "@/rdm.conf:4: error: \"debug-loglevel\" is not a name=\"value\" pair\n"},
      {"debug-loglevel=much\n", "@/rdm.conf:4: error: \"debug-loglevel\" is not a number: \"much\"\n"},
      {"debug-loglevel=1x\n", "@/rdm.conf:4: error: \"debug-loglevel\" is not a number: \"1x\"\n"},
      {"debug-loglevel=-\n", "@/rdm.conf:4: error: \"debug-loglevel\" is not a number: \"-\"\n"},
      {"debug-loglevel=\"\"\n", "@/rdm.conf:4: error: \"debug-loglevel\" is empty\n"},
      {"logfiel=x\n", "@/rdm.conf:4: warning: unknown name \"logfiel\" (did you mean \"logfile\"?)\n"},
      {"Logfile=x\n", "@/rdm.conf:4: warning: unknown name \"Logfile\" (did you mean \"logfile\"?)\n"},
      {"journal=x\n", "@/rdm.conf:4: warning: unknown name \"journal\"\n"},
      {"bindir=\"/elsewhere\"\n", "@/rdm.conf:4: warning: \"bindir\" was given in line 1; this value is ignored\n"},
      {"logfile=\"\"\n", "@/rdm.conf:4: error: \"logfile\" is empty\n"},
      {"logfile=\"@/none/rdm.log\"\n",
       "@/rdm.conf:4: error: \"logfile\" cannot be written: @/none: No such file or directory\n"},
      {"debug-logfile=\"@/none/debug.log\"\n",
       "@/rdm.conf:4: error: \"debug-logfile\" cannot be written: @/none: No such file or directory\n"},
      {"logfile=\"@/bin\"\n", "@/rdm.conf:4: error: \"logfile\" is a directory: @/bin\n"},
      {"tmpdir=\"@/none\"\n", "@/rdm.conf:4: error: \"tmpdir\" is not a directory: @/none\n"},
      {"tmpdir=\"@/rfc.db\"\n", "@/rdm.conf:4: error: \"tmpdir\" is not a directory: @/rfc.db\n"},
      {"x=\"a\x01\"\"b\n",
       "@/rdm.conf:4: error: \"\"b\" is not a name=\"value\" pair\n"
       "@/rdm.conf:4: warning: unknown name \"x\"\n"},
  };
  for (const auto &row : cases) {
    config(row.lines);
    EXPECT_EQ(found(), row.expected) << row.lines;
  }
}

TEST_F(Check, ReadsPairsAsTheServiceDoes) {
  whole_config("bindir=\"@/bin\"csid-default=x-catalog://localhost:8380/rfc\tcsid-config=\"@/csid\\.conf\"\n");
  EXPECT_EQ(found(), "");
  whole_config(
      "bindir=@/bin csid-default=\"x-catalog://localhost:8380/rfc\" csid-config=@/csid.conf tmpdir=\"say \\\"yes\n");
  EXPECT_EQ(found(),
            "@/rdm.conf:1: error: the quote after tmpdir= is not closed\n"
            "@/rdm.conf:1: error: \"tmpdir\" is not a directory: say \"yes\n");
}

TEST_F(Check, RequiresThreeNames) {
  whole_config("# nothing but a remark\n");
  EXPECT_EQ(found(),
            "@/rdm.conf: error: \"bindir\" is required\n"
            "@/rdm.conf: error: \"csid-config\" is required\n"
            "@/rdm.conf: error: \"csid-default\" is required\n");
  whole_config("bindir=\"\" csid-config=\"\"\ncsid-default=\"\"\n");
  EXPECT_EQ(found(),
            "@/rdm.conf:1: error: \"bindir\" is empty\n"
            "@/rdm.conf:1: error: \"csid-config\" is empty\n"
            "@/rdm.conf:2: error: \"csid-default\" is empty\n");
}

TEST_F(Check, NamesFilesThatCannotBeRead) {
  std::filesystem::remove(directory_.path("rdm.conf"));
  EXPECT_EQ(found(), "@/rdm.conf: error: cannot be read: No such file or directory\n");
  config("");
  std::filesystem::remove(directory_.path("csid.conf"));
  EXPECT_EQ(found(), "@/csid.conf: error: cannot be read: No such file or directory\n");
  std::filesystem::create_directory(directory_.path("csid.conf"));
  EXPECT_EQ(found(), "@/csid.conf: error: is not a file\n");
}

TEST_F(Check, WaitsForNoNamedPipe) {
  // Regression: the check of a named pipe blocked until the pipe had a writer.
  services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/rfc.db\"\nserver-description=\"@/pipe\"\n");
  ASSERT_EQ(::mkfifo(directory_.path("pipe").c_str(), 0644), 0);
  EXPECT_EQ(found(), "@/pipe: error: is not a file\n");
  for (const char *name : {"rfc.db", "rfc.db.idx", "csid.conf", "rdm.conf"}) {
    std::filesystem::remove(directory_.path(name));
    ASSERT_EQ(::mkfifo(directory_.path(name).c_str(), 0644), 0);
    EXPECT_NE(found().find("@/" + std::string(name) + ": error: is not a file\n"), std::string::npos) << found();
  }
}

TEST_F(Check, ReportsLinesThatTheServiceTruncates) {
  config("tmpdir=\"@/\"" + std::string(9000, ' ') + "logfile=\"@/none/x\"\n");
  EXPECT_EQ(found(), "@/rdm.conf:4: error: the line is truncated after 8191 bytes\n");
}

TEST_F(Check, APathOfTheTransactionLogHasALimit) {
  config("logfile=\"@/" + std::string(1024, 'x') + "\"\n");
  EXPECT_EQ(found_in_lines(),
            "@/rdm.conf:4: error: the path of the transaction log is truncated after 1023 characters\n");
}

TEST_F(Check, TheDirectoryOfCommandsHoldsMinidba) {
  ::chmod(directory_.path("bin/minidba").c_str(), 0644);
  EXPECT_EQ(found(), "@/rdm.conf:1: error: \"bindir\" has no executable minidba: @/bin\n");
  std::filesystem::remove_all(directory_.path("bin"));
  EXPECT_EQ(found(), "@/rdm.conf:1: error: \"bindir\" is not a directory: @/bin\n");
}

TEST_F(Check, ADefaultServiceThatIsNotListedIsAnError) {
  whole_config("bindir=\"@/bin\"\ncsid-config=\"@/csid.conf\"\ncsid-default=\"x-catalog://localhost:8380/RFC\"\n");
  EXPECT_EQ(found(),
            "@/rdm.conf:3: error: the default service \"x-catalog://localhost:8380/RFC\" is not in @/csid.conf "
            "(did you mean \"x-catalog://localhost:8380/rfc\"?)\n");
  whole_config("bindir=\"@/bin\"\ncsid-config=\"@/csid.conf\"\ncsid-default=\"unknown\"\n");
  EXPECT_EQ(found(), "");
}

TEST_F(Check, NamesFileAndLineOfEachMistakeInTheList) {
  const std::string rfc = "csid=\"x-catalog://localhost:8380/rfc\" catalog-database=\"@/rfc.db\"\n";
  const struct {
    std::string lines;
    const char *expected;
  } cases[] = {
      {"catalog-database=\"@/rfc.db\"\n" + rfc,
       "@/csid.conf:1: error: \"catalog-database\" comes before the first \"csid\" and is ignored\n"},
      {rfc + "\n" + rfc,
       "@/csid.conf:3: error: the service \"x-catalog://localhost:8380/rfc\" was given in line 1; this one is "
       "ignored\n"},
      {rfc + "alias-file=\"@/aliases\n",
       "@/csid.conf:2: error: the quote after alias-file= is not closed\n"
       "@/aliases: error: cannot be read: No such file or directory\n"},
      {rfc + "some words\n", "@/csid.conf:2: error: \"some\" is not a name=\"value\" pair\n"},
      {rfc + "catalog-database=\"@/other.db\"\n",
       "@/csid.conf:2: warning: \"catalog-database\" was given in line 1; this value is ignored\n"},
      {rfc + "csid=\"x-catalog://localhost:8380/two\"\n",
       "@/csid.conf:2: warning: the service \"x-catalog://localhost:8380/two\" has no \"catalog-database\"\n"},
      {rfc + "csid=\"two\" catalog-database=\"@/rfc.db\"\n",
       "@/csid.conf:2: warning: \"two\" is not of the form x-catalog://HOST:PORT/NAME\n"},
      {rfc + "csid=\"x-catalog://localhost/two\" catalog-database=\"@/rfc.db\"\n",
       "@/csid.conf:2: warning: \"x-catalog://localhost/two\" is not of the form x-catalog://HOST:PORT/NAME\n"},
      {rfc + "csid=\"x-catalog://localhost:8380/\" catalog-database=\"@/rfc.db\"\n",
       "@/csid.conf:2: warning: \"x-catalog://localhost:8380/\" is not of the form x-catalog://HOST:PORT/NAME\n"},
      {rfc + "csid=\"\" catalog-database=\"@/rfc.db\"\n", "@/csid.conf:2: error: \"csid\" is empty\n"},
  };
  for (const auto &row : cases) {
    services(row.lines);
    EXPECT_EQ(found(), row.expected) << row.lines;
  }
}

/// Regression: a typing mistake in a name left a service without its catalog, and the check found the configuration
/// valid.
TEST_F(Check, EveryNameInTheListIsKnown) {
  const struct {
    const char *pair, *expected;
  } cases[] = {
      {"catalog-databse=x", "unknown name \"catalog-databse\" (did you mean \"catalog-database\"?)"},
      {"servre-description=x", "unknown name \"servre-description\" (did you mean \"server-description\"?)"},
      {"taxonomy_description=x", "unknown name \"taxonomy_description\" (did you mean \"taxonomy-description\"?)"},
      {"scid=x", "unknown name \"scid\" (did you mean \"csid\"?)"},
      {"tmpdir=x", "unknown name \"tmpdir\""},
  };
  for (const auto &row : cases) {
    services("csid=\"x-catalog://localhost:8380/rfc\" catalog-database=\"@/rfc.db\"\n" + std::string(row.pair) + "\n");
    EXPECT_EQ(found(), "@/csid.conf:2: error: " + std::string(row.expected) + "\n");
  }
  const std::string long_name(300, 'x');
  services("csid=\"x-catalog://localhost:8380/rfc\" catalog-database=\"@/rfc.db\" " + long_name + "=y\n");
  EXPECT_EQ(found(), "@/csid.conf:1: error: unknown name \"" + long_name + "\"\n");
}

TEST_F(Check, AnEmptyListIsAWarningOfItsOwn) {
  services("# no services\n");
  EXPECT_EQ(found(),
            "@/csid.conf: warning: lists no catalog service\n"
            "@/rdm.conf:3: error: the default service \"x-catalog://localhost:8380/rfc\" is not in @/csid.conf\n");
}

TEST_F(Check, SixtyThreeServicesAreTheLimit) {
  std::string list = "csid=\"x-catalog://localhost:8380/rfc\" catalog-database=\"@/rfc.db\"\n";
  for (int i = 2; i <= 63; ++i)
    list += "csid=\"x-catalog://localhost:8380/" + std::to_string(i) + "\" catalog-database=\"@/rfc.db\"\n";
  services(list);
  EXPECT_EQ(found(), "");
  for (int i = 64; i <= 65; ++i)
    list += "csid=\"x-catalog://localhost:8380/" + std::to_string(i) + "\" catalog-database=\"@/none.db\"\n";
  services(list);
  EXPECT_EQ(found(), "@/csid.conf:64: error: more than 63 services; this one and those after it are ignored\n");
}

TEST_F(Check, PathsOfDatabasesAreNoShellText) {
  for (const char c : std::string(" \t|&;<>()$`'*?[]#~!{}^")) {
    const std::string path = std::string("@/a") + c + "b.db";
    catalog(std::string("a") + c + "b.db");
    services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"" + path + "\"\n");
    const std::string shown = c == '\t' ? "\\x09" : std::string(1, c);
    EXPECT_EQ(found(), "@/csid.conf:2: error: the path \"@/a" + shown +
                           "b.db\" has a character with a special meaning to the shell: \"" + shown + "\"\n");
  }
  for (const char *name : {"a-b_c.d,e:f@g%h=i+j.db", "\xc3\xa9.db"}) {
    catalog(name);
    services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/" + std::string(name) + "\"\n");
    EXPECT_EQ(found(), "") << name;
  }
}

/// The service accepts any path that the system accepts.
TEST_F(Check, PathsOfDatabasesMayBeLong) {
  std::string name;
  for (int i = 0; i < 6; ++i) {
    name += (i == 0 ? "" : "/") + std::string(200, static_cast<char>('a' + i));
    std::filesystem::create_directory(directory_.path(name));
  }
  name += "/catalog.db";
  catalog(name);
  services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/" + name + "\"\n");
  EXPECT_EQ(found(), "");
}

TEST_F(Check, NamesDamageOfACatalogOnce) {
  services(
      "csid=\"x-catalog://localhost:8380/rfc\" catalog-database=\"@/rfc.db\"\n"
      "csid=\"x-catalog://localhost:8380/two\" catalog-database=\"@/rfc.db\"\n");
  write("rfc.db.idx", "");
  EXPECT_EQ(found(), "@/rfc.db.idx: error: is not an index of a catalog database\n");
  write("rfc.db", "");
  EXPECT_EQ(found(),
            "@/rfc.db.idx: error: is not an index of a catalog database\n"
            "@/rfc.db: error: is not a catalog database\n");
}

TEST_F(Check, AliasesAreNewNames) {
  services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/rfc.db\" alias-file=\"@/aliases\"\n");
  const struct {
    const char *lines, *expected;
  } cases[] = {
      {"tcp rfc793\n tcp std7\n", ""},
      {"tcp tcp\n",
       "@/aliases:1: error: the alias \"tcp\" was given in line 1; the service refuses it and the rest of this line\n"},
      {"dns domain\n# zone\nnames domain zone\nother zone\n",
       "@/aliases:3: error: the alias \"domain\" was given in line 1; the service refuses it and the rest of this "
       "line\n"},
      {"a b\nb c\nd a\n",
       "@/aliases:3: error: the alias \"a\" was given in line 1; the service refuses it and the rest of this line\n"},
  };
  for (const auto &row : cases) {
    write("aliases", row.lines);
    EXPECT_EQ(found(), row.expected) << row.lines;
  }
}

/// Any text with blanks can be read as aliases: a description given as the alias file defined hundreds of them.
TEST_F(Check, OtherFilesAreRefusedAsAliasFiles) {
  services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/rfc.db\" alias-file=\"@/aliases\"\n");
  const std::string none = "error: is not an alias file: this line has ";
  const struct {
    std::string bytes, expected;
  } cases[] = {
      {"", ""},
      {"# a=\"b\" and }:\t, in a remark\n@home {x} a=b \xc3\xa9t\xc3\xa9\r\n", ""},
      {support::read_file(directory_.path("rfc.db")), "@/aliases:1: " + none + "a control character\n"},
      {"dns domain\n\x7f"
       "ELF\n",
       "@/aliases:2: " + none + "a control character\n"},
      {"# services\n\n csid=\"x\"\n", "@/aliases:3: " + none + "a name=\"value\" pair\n"},
      {header(), "@/aliases:2: " + none + "a SOIF attribute\n"},
      {"\n <!DOCTYPE html>\n<html>\n", "@/aliases:2: " + none + "markup\n"},
      {"{\n  \"home\": [\"house\"]\n}\n", "@/aliases:2: " + none + "a JSON member\n"},
      {"a<b \"home\" : <c>\n", ""},
      {std::string(9000, ' ') + '\0', "@/aliases:1: error: the line is truncated after 8191 bytes\n"},
  };
  for (const auto &row : cases) {
    write("aliases", row.bytes);
    EXPECT_EQ(found(), row.expected);
  }
}

TEST_F(Check, DescriptionsAreAnswersOfTheirKind) {
  for (const std::string kind : {"server", "schema", "taxonomy"}) {
    services("csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/rfc.db\" " + kind +
             "-description=\"@/d\"\n");
    EXPECT_EQ(found(), "@/d: error: cannot be read: No such file or directory\n");
    write("d", "@RDMHEADER { -\nrdm-type{15}:\tstatus-response\n}\n\n@" + kind + " { -\nid{2}:\tx\n}\n");
    EXPECT_EQ(found(), "@/d:2: error: the type is \"status-response\"; \"" + kind + "-description\" requires \"" +
                           kind + "-description-response\"\n@/d:6: error: \"id\" announces 2 bytes; 1 would fit\n");
    std::filesystem::remove(directory_.path("d"));
  }
}

TEST_F(Check, OnlyErrorsCount) {
  EXPECT_FALSE(check::has_errors({}));
  EXPECT_FALSE(check::has_errors({{check::Severity::warning, "f", 1, "t"}}));
  EXPECT_TRUE(check::has_errors({{check::Severity::warning, "f", 1, "t"}, {check::Severity::error, "f", 0, "t"}}));
}

/// A file of another kind has a mistake in every line, and thousands of findings would hide those of other files.
TEST_F(Check, ShowsTwentyFindingsOfAFileAndCountsTheRest) {
  const auto lines = [](const char *file, const char *kind, int from, int to) {
    std::string text;
    for (int line = from; line <= to; ++line)
      text += std::string(file) + ":" + std::to_string(line) + ": " + kind + ": t\n";
    return text;
  };
  check::Findings findings;
  const auto add = [&findings](const char *file, check::Severity severity, int from, int to) {
    for (int line = from; line <= to; ++line) findings.push_back({severity, file, line, "t"});
  };
  add("a", check::Severity::error, 1, 20);
  add("b", check::Severity::error, 1, 21);
  add("c", check::Severity::warning, 1, 30);
  add("a", check::Severity::warning, 21, 21);
  add("c", check::Severity::error, 31, 33);
  add("d", check::Severity::warning, 1, 2);
  add("d", check::Severity::error, 3, 30);
  EXPECT_EQ(text_of(check::limited(findings)), lines("a", "error", 1, 20) + lines("b", "error", 1, 20) +
                                                   "b: error: 1 more error\n" + lines("c", "warning", 1, 17) +
                                                   "a: warning: 1 more warning\n" + lines("c", "error", 31, 33) +
                                                   "c: warning: 13 more warnings\n" + lines("d", "error", 3, 22) +
                                                   "d: error: 8 more errors and 2 more warnings\n");
}

TEST_F(Check, LimitsTheLinesOfEachFile) {
  std::string words;
  for (int i = 0; i < 25; ++i) words += "word\n";
  config(words);
  const std::string all = found();
  EXPECT_EQ(all, found_in_lines());
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 21);
  EXPECT_NE(all.find("@/rdm.conf:23: error: \"word\" is not a name=\"value\" pair\n@/rdm.conf: error: 5 more errors\n"),
            std::string::npos)
      << all;
}

TEST_F(Check, ChangesNothing) {
  config("logfile=\"@/rdm.log\"\ndebug-logfile=\"@/debug.log\"\n");
  EXPECT_EQ(found(), "");
  EXPECT_FALSE(support::file_exists(directory_.path("rdm.log")));
  EXPECT_FALSE(support::file_exists(directory_.path("debug.log")));
}

class CheckOption : public Check {
 protected:
  static std::string plugin() { return support::in_build("tests/test_plugin.so"); }
  /// command returns the arguments of a check with more options.
  std::vector<std::string> command(const std::vector<std::string> &options,
                                   const std::string &library = plugin()) const {
    std::vector<std::string> words = {support::in_build("bin/rdmd"), "--check",  "--config",
                                      directory_.path("rdm.conf"),   "--plugin", library};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }
  /// without returns the arguments of a run that lacks these capabilities even if the caller is the superuser.
  static std::vector<std::string> without(const char *capabilities, std::vector<std::string> arguments) {
    if (::geteuid() == 0) arguments.insert(arguments.begin(), {"/usr/bin/setpriv", capabilities});
    return arguments;
  }
};

TEST_F(CheckOption, AcceptsAValidConfigurationAndServesNothing) {
  config("frobnicate=yes\n");
  support::RdmdProcess server({"--check", "--config", directory_.path("rdm.conf"), "--plugin", plugin(), "--listen",
                               "127.0.0.1:0", "--error-log", directory_.path("errors")});
  EXPECT_EQ(server.wait(), 0);
  EXPECT_EQ(server.output(), directory_.path("rdm.conf") + ": the configuration is valid\n");
  EXPECT_EQ(server.errors(), directory_.path("rdm.conf") + ":4: warning: unknown name \"frobnicate\"\n");
  EXPECT_FALSE(support::file_exists(directory_.path("errors")));
}

TEST_F(CheckOption, RefusesAnInvalidConfiguration) {
  write("rfc.db.idx", "");
  support::RdmdProcess server({"--check", "--config", directory_.path("rdm.conf"), "--plugin", plugin()});
  EXPECT_EQ(server.wait(), 1);
  EXPECT_EQ(server.output(), "");
  EXPECT_EQ(server.errors(), directory_.path("rfc.db.idx") + ": error: is not an index of a catalog database\n");
}

TEST_F(CheckOption, RefusesADirectoryForTemporaryFilesThatCannotBeWritten) {
  ASSERT_EQ(::mkdir(directory_.path("sealed").c_str(), 0555), 0);
  config("tmpdir=\"@/sealed\"\n");
  const std::string program = support::in_build("bin/rdmd");
  const support::Finished finished = support::run(
      support::as_owner({program, "--check", "--config", directory_.path("rdm.conf"), "--plugin", plugin()}));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors,
            directory_.path("rdm.conf") + ":4: error: \"tmpdir\" cannot be written: Permission denied\n");
}

TEST_F(CheckOption, RefusesAPluginThatDoesNotLoad) {
  support::RdmdProcess server({"--check", "--config", directory_.path("rdm.conf"), "--plugin", "/nonexistent.so"});
  EXPECT_EQ(server.wait(), 1);
  EXPECT_EQ(
      server.errors(),
      "rdmd: cannot load the plug-in: /nonexistent.so: cannot open shared object file: No such file or directory\n");
}

TEST_F(CheckOption, AServerThatStartsSaysWhichLinesAreMistaken) {
  config("journal=\"@/journal\"\ntmpdir=\"@/\n");
  support::RdmdProcess server(
      {"--listen", "127.0.0.1:0", "--config", directory_.path("rdm.conf"), "--plugin", plugin()});
  EXPECT_NE(server.port(), 0);
  const std::string conf = directory_.path("rdm.conf");
  EXPECT_NE(server.errors().find("[warning] rdmd: " + conf + ":4: warning: unknown name \"journal\"\n"),
            std::string::npos)
      << server.errors();
  EXPECT_NE(server.errors().find("[error] rdmd: " + conf + ":5: error: the quote after tmpdir= is not closed\n"),
            std::string::npos)
      << server.errors();
}

/// Regression: the check did not open the logs of the command line, so it passed and the start failed.
TEST_F(CheckOption, ChecksTheOptionsOfTheCommandLine) {
  const support::Finished finished =
      support::run(command({"--listen", "198.51.100.1:8380", "--access-log", directory_.path("none/access"),
                            "--error-log", directory_.path("bin")}));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors,
            "rdmd: error: cannot listen on 198.51.100.1:8380: Cannot assign requested address\n"
            "rdmd: error: \"--access-log\" cannot be written: " +
                directory_.path("none") + ": No such file or directory\n" +
                "rdmd: error: \"--error-log\" is a directory: " + directory_.path("bin") + "\n");
  EXPECT_EQ(support::run(command({"--access-log", "-", "--error-log", directory_.path("errors")})).errors, "");
}

TEST_F(CheckOption, APrivilegedPortTakesPermission) {
  const int first = std::stoi(support::read_file("/proc/sys/net/ipv4/ip_unprivileged_port_start"));
  const support::Finished finished =
      support::run(without("--bounding-set=-net_bind_service", command({"--listen", "127.0.0.1:1"})));
  EXPECT_EQ(finished.errors, first > 1 ? "rdmd: error: cannot listen on 127.0.0.1:1: Permission denied\n" : "");
  EXPECT_EQ(finished.status, first > 1 ? 1 : 0);
}

TEST_F(CheckOption, AUserIsNamedForACheckOnly) {
  const support::Finished served = support::run({support::in_build("bin/rdmd"), "--config", directory_.path("rdm.conf"),
                                                 "--plugin", plugin(), "--user", "nobody"});
  EXPECT_EQ(served.status, 2);
  EXPECT_EQ(served.errors.find("rdmd: --user requires --check"), 0U) << served.errors;
  const support::Finished unknown = support::run(command({"--user", "nobody knows"}));
  EXPECT_EQ(unknown.status, 1);
  EXPECT_EQ(unknown.errors, "rdmd: error: unknown user \"nobody knows\"\n");
}

TEST_F(CheckOption, TheCallerCanNameItself) {
  const std::string caller = ::getpwuid(::geteuid())->pw_name;
  const support::Finished finished =
      support::run(without("--bounding-set=-setuid,-setgid", command({"--user", caller})));
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(finished.out, directory_.path("rdm.conf") + ": the configuration is valid for the user " + caller + "\n");
}

TEST_F(CheckOption, OnlyTheSuperuserCanCheckForAnotherUser) {
  const support::Finished finished =
      support::run(without("--bounding-set=-setuid,-setgid", command({"--user", "nobody"})));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors,
            "rdmd: error: cannot take the rights of the user \"nobody\": Operation not permitted; run the check as "
            "this user or as the superuser\n");
}

/// CheckByUser has a configuration that all users may read and directories that all may write. The superuser checks for
/// "nobody", other callers for themselves.
class CheckByUser : public CheckOption {
 protected:
  void SetUp() override {
    // The user may lack access to the directory of the build.
    std::filesystem::copy_file(plugin(), library_);
    services(
        "csid=\"x-catalog://localhost:8380/rfc\"\ncatalog-database=\"@/rfc.db\" alias-file=\"@/aliases\" "
        "server-description=\"@/server.rdm\"\n");
    config("logfile=\"@/logs/rdm.log\" debug-logfile=\"@/debug.log\" tmpdir=\"@/tmp\"\n");
    write("aliases", "tcp rfc793\n");
    write("debug.log", "");
    for (const char *name : {"logs", "tmp"}) std::filesystem::create_directory(directory_.path(name));
    for (const char *name : {"", "logs", "tmp", "debug.log"}) allow(name, 0777);
  }
  /// Only a directory that is readable can be removed.
  ~CheckByUser() override {
    for (const char *name : {"", "logs", "tmp", "bin"}) ::chmod(directory_.path(name).c_str(), 0700);
  }
  /// allow sets the permissions of a file. A caller who checks for himself owns the file, so the permissions of others
  /// are given to the owner.
  void allow(const char *name, mode_t mode) {
    const mode_t of_others = mode & 07;
    const mode_t granted = ::geteuid() == 0 ? mode : (mode & 077) | of_others << 6;
    ASSERT_EQ(::chmod(directory_.path(name).c_str(), granted), 0);
  }
  support::Finished check() {
    const support::TemporaryDirectory counters;
    ::chmod(counters.path().c_str(), 0777);
    const support::Uncounted uncounted(counters.path());
    return support::run(command({"--user", user_, "--error-log", directory_.path("logs/errors")}, library_));
  }
  std::string errors() { return replaced(check().errors, directory_.path() + "/", "@/"); }

  const std::string library_ = directory_.path("plugin.so");
  const std::string user_ = ::geteuid() == 0 ? "nobody" : ::getpwuid(::geteuid())->pw_name;
};

/// Regression: the check ran as the superuser, who can read and write everything, not as the user of the service.
TEST_F(CheckByUser, ReportsFilesTheUserMayNotReadOrWrite) {
  EXPECT_EQ(check().out, directory_.path("rdm.conf") + ": the configuration is valid for the user " + user_ + "\n");
  EXPECT_EQ(errors(), "");
  // The user is not in the superuser's group.
  for (const char *name : {"rfc.db", "rfc.db.idx", "aliases", "server.rdm"}) allow(name, 0640);
  allow("bin/minidba", 0744);
  allow("debug.log", 0644);
  for (const char *name : {"tmp", "logs"}) allow(name, 0755);
  EXPECT_EQ(check().status, 1);
  EXPECT_EQ(errors(),
            "rdmd: error: \"--error-log\" cannot be written: @/logs: Permission denied\n"
            "@/rdm.conf:1: error: \"bindir\" has no executable minidba: @/bin\n"
            "@/rdm.conf:4: error: \"tmpdir\" cannot be written: Permission denied\n"
            "@/rdm.conf:4: error: \"logfile\" cannot be written: @/logs: Permission denied\n"
            "@/rdm.conf:4: error: \"debug-logfile\" cannot be written: @/debug.log: Permission denied\n"
            "@/rfc.db.idx: error: cannot be read: Permission denied\n"
            "@/rfc.db: error: cannot be read: Permission denied\n"
            "@/aliases: error: cannot be read: Permission denied\n"
            "@/server.rdm: error: cannot be read: Permission denied\n");
}

TEST_F(CheckByUser, NamesDirectoriesThatTheUserCannotEnter) {
  for (const char *name : {"logs", "tmp", "bin"}) allow(name, 0700);
  config("logfile=\"@/logs/rdm.log\" tmpdir=\"@/tmp/in/it\"\n");
  EXPECT_EQ(errors(),
            "rdmd: error: \"--error-log\" cannot be written: @/logs/errors: Permission denied\n"
            "@/rdm.conf:1: error: \"bindir\" has no executable minidba: @/bin\n"
            "@/rdm.conf:4: error: \"tmpdir\" cannot be reached: @/tmp/in/it: Permission denied\n"
            "@/rdm.conf:4: error: \"logfile\" cannot be written: @/logs/rdm.log: Permission denied\n");
}

TEST_F(CheckByUser, ThePluginAndTheConfigurationMustBeReadable) {
  allow("plugin.so", 0700);
  allow("rdm.conf", 0600);
  EXPECT_EQ(errors(),
            "rdmd: cannot load the plug-in: @/plugin.so: cannot open shared object file: Permission denied\n"
            "@/rdm.conf: error: cannot be read: Permission denied\n");
}

}  // namespace
