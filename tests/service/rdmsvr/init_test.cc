// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/log.h>

#include "libcs/guard.h"
#include "service/csid.h"
#include "service/rdm.h"
#include "service/schema.h"
#include "service/support/trace.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Exchange;
using support::TemporaryDirectory;
using testing::HasSubstr;

std::string variable(const char *name) {
  const char *value = std::getenv(name);
  return value == nullptr ? "(unset)" : value;
}

constexpr char missing_key[] = "Parameter '%s' required by rdm-init in configuration file.\n";

std::string missing(const char *key) {
  std::string text = missing_key;
  return text.replace(text.find("%s"), 2, key);
}

/// The environment outlives an initialisation by design, so this is not a HostTest, which asserts that every block is
/// released.
class Initialisation : public testing::Test {
 protected:
  Initialisation() {
    support::bind_memory_host();
    setenv("PATH", "/usr/bin:/bin", 1);
    for (const char *name : {"TMPDIR", "QXCS_DEBUG_LOGLEVEL", "QXCS_DEBUG_LOGFILE"}) unsetenv(name);
  }
  ~Initialisation() override {
    for (const auto &[fn, argument] : host_.exits) fn(argument);
    cslog_terminate();
    cslog_set_level(0);
    release_sections();
    // The variables refer to texts of the library: unset them before the host changes.
    for (const char *name : {"TMPDIR", "QXCS_DEBUG_LOGLEVEL", "QXCS_DEBUG_LOGFILE"}) unsetenv(name);
    setenv("PATH", "/usr/bin:/bin", 1);
    qxapi_bind(nullptr);
  }

  static void release_sections() {
    for (host_crit **section : {&rdm_log_crit, &rdm_service_crit}) host_free(std::exchange(*section, nullptr));
  }

  /// init calls rdm_init with a configuration file of these lines and keeps the output to standard error.
  int init(const std::string &lines) {
    const std::string path = directory_.write("rdm.conf", lines);
    const PblockPtr pb(host_param_create(3));
    host_param_add("config", path.c_str(), pb.get());
    testing::internal::CaptureStderr();
    const int result = rdm_init(pb.get(), &x_.session, &x_.request);
    stderr_ = testing::internal::GetCapturedStderr();
    return result;
  }

  std::string csid_file(const std::string &text = "csid=\"c\"\n") { return directory_.write("csid.conf", text); }

  /// complete returns a valid configuration with the diagnostic log in a file.
  std::string complete() {
    return "bindir=/opt/rdm/bin\ncsid-config=" + csid_file() +
           "\ncsid-default=c\ndebug-logfile=" + directory_.path("debug.log") + "\n";
  }
  std::string diagnostics() { return support::read_file(directory_.path("debug.log")); }
  static std::string without_stamps(const std::string &text) {
    static const std::regex stamp(R"(\[[^\]\n]*\] +\d+@\d+:(\t)? )");
    return std::regex_replace(text, stamp, "");
  }
  std::string diagnostic_lines() { return without_stamps(diagnostics()); }

  TemporaryDirectory directory_;
  support::HostRecord &host_ = support::host_record();
  Exchange x_{"", ""};
  std::string stderr_;
};

TEST_F(Initialisation, NeedsAConfig) {
  const PblockPtr pb(host_param_create(3));
  testing::internal::CaptureStderr();
  EXPECT_EQ(rdm_init(pb.get(), nullptr, nullptr), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "rdm-init requires 'config' parameter.");
  EXPECT_STREQ(host_param_find("error", pb.get()), "rdm-init requires 'config' parameter.");
}

TEST_F(Initialisation, NeedsAConfigThatCanBeRead) {
  const std::string file = directory_.write("rdm.conf", complete());
  const std::pair<std::string, long> rows[] = {
      {directory_.path("missing"), 0},  // and the allocation that fails
      {directory_.path(), 0},
      {file, 1},  // the block of the configuration
      {file, 2},  // the reader
  };
  for (const auto &[path, refused] : rows) {
    const PblockPtr pb(host_param_create(3));
    host_param_add("config", path.c_str(), pb.get());
    const long descriptors = support::open_descriptors(), blocks = host_.live_blocks;
    host_.reports.clear();
    host_.fail_allocation = refused != 0 ? host_.allocations + refused : 0;
    EXPECT_EQ(rdm_init(pb.get(), nullptr, nullptr), -1);
    EXPECT_EQ(host_.reports, std::vector<std::string>{"0 rdm-init: config not readable?\n"});
    EXPECT_EQ(support::open_descriptors(), descriptors);
    EXPECT_EQ(host_.live_blocks, blocks);
    EXPECT_EQ(host_param_find("error", pb.get()), nullptr);
  }
}

// Regression: a read error was taken for the end of the file, and the service started with the lines before it.
TEST_F(Initialisation, NeedsAConfigThatCanBeReadToItsEnd) {
  const std::string lines = complete();
  static long allowed;
  allowed = std::count(lines.begin(), lines.end(), '\n');
  qxapi_host host = support::memory_host();
  host.getline = [](host_buffer *reader, int number, int limit, char *line) {
    return allowed-- > 0 ? support::memory_host().getline(reader, number, limit, line) : -1;
  };
  qxapi_bind(&host);
  EXPECT_EQ(init(lines), -1);
  EXPECT_EQ(host_.reports, std::vector<std::string>{"0 rdm-init: config not readable?\n"});
}

/// Reports pass session and request to the host.
TEST_F(Initialisation, ReportsWithTheSessionAndRequestOfItsCaller) {
  static const Session *session;
  static const Request *request;
  qxapi_host host = support::memory_host();
  host.report_error = [](int, const char *, Session *sn, Request *rq, const char *, va_list) {
    session = sn;
    request = rq;
  };
  qxapi_bind(&host);
  EXPECT_EQ(init(complete() + "logfile=" + directory_.path("missing/transactions.log") + "\n"), 0);
  EXPECT_EQ(session, &x_.session);
  EXPECT_EQ(request, &x_.request);
  session = nullptr;
  const PblockPtr pb(host_param_create(3));
  host_param_add("config", directory_.path("missing").c_str(), pb.get());
  EXPECT_EQ(rdm_init(pb.get(), &x_.session, nullptr), -1);
  EXPECT_EQ(session, &x_.session);
  EXPECT_EQ(request, nullptr);
}

TEST_F(Initialisation, AsksItsHostInOrder) {
  const std::string transactions = directory_.path("transactions.log");
  const std::string lines = complete() + "logfile=" + transactions + "\n";
  const support::Trace trace;
  EXPECT_EQ(init(lines), 0);
  const std::vector<std::string> expected = {
      "param_create 3",
      "param_create 15",
      "open_read " + directory_.path("rdm.conf"),
      "buffer_open 4096",
      "buffer_close",
      "open_append " + directory_.path("debug.log"),
      "crit_create",
      "crit_create",
      "open_append " + transactions,
      "register_exit",
      "open_read " + directory_.path("csid.conf"),
      "buffer_open 8192",
      "param_create 7",
      "buffer_close",
      "register_exit",
      "register_exit",
      "write_log RDM server is on-line.\n",
  };
  std::vector<std::string> calls = trace.calls();
  for (std::string &call : calls) call = without_stamps(call);
  EXPECT_EQ(calls, expected);
}

// Regression: when memory failed, the service started with a part of its configuration.
TEST_F(Initialisation, NeedsAllOfItsConfig) {
  const std::string lines = complete() + "logfile=" + directory_.path("log") + "\n";
  const long of_block = 1, of_pair = 2, pairs = 5;  // the test's, the block's and the reader's; then those of each pair
  for (long failing = of_block + 3; failing < of_block + 3 + of_pair * pairs; ++failing) {
    host_.reports.clear();
    host_.allocations = 0;
    host_.fail_allocation = failing;
    EXPECT_EQ(init(lines), -1) << failing;
    host_.fail_allocation = 0;
    EXPECT_EQ(host_.reports, std::vector<std::string>{"0 rdm-init: config not readable?\n"}) << failing;
  }
  EXPECT_EQ(init(lines), 0);
}

TEST_F(Initialisation, CompletesAndSaysSo) {
  EXPECT_EQ(init(complete()), 0);
  EXPECT_THAT(diagnostics(), HasSubstr("\t RDM server is on-line.\n"));
  EXPECT_EQ(variable("PATH"), "/opt/rdm/bin:/usr/bin:/bin");
  EXPECT_EQ(variable("QXCS_DEBUG_LOGLEVEL"), "1");
  EXPECT_EQ(variable("QXCS_DEBUG_LOGFILE"), directory_.path("debug.log"));
  EXPECT_EQ(variable("TMPDIR"), "(unset)");
  EXPECT_STREQ(cs_csidcf, directory_.path("csid.conf").c_str());
  EXPECT_NE(csid_find("c"), nullptr);
  EXPECT_STREQ(csid_default(nullptr), "c");
  EXPECT_NE(rdm_log_crit, nullptr);
  EXPECT_NE(rdm_service_crit, nullptr);
  EXPECT_EQ(logfd, -1);
  EXPECT_STREQ(logfile, "");
  EXPECT_EQ(stderr_, "");
  EXPECT_EQ(host_.exits.size(), 2u);
}

TEST_F(Initialisation, SkipsCommentsAndReadsSeveralPairsALine) {
  EXPECT_EQ(
      init("# bindir=/wrong\n#bindir=/wrong\nbindir=\"/opt/with blank\" bindir=/second tmpdir=/var/tmp\ncsid-config=" +
           csid_file() + " csid-default=c debug-loglevel=3 debug-logfile=" + directory_.path("debug.log")),
      0);
  EXPECT_EQ(variable("PATH"), "/opt/with blank:/usr/bin:/bin") << "of equal keys the first counts";
  EXPECT_EQ(variable("TMPDIR"), "/var/tmp");
  EXPECT_EQ(variable("QXCS_DEBUG_LOGLEVEL"), "3");
  EXPECT_EQ(_cslog_level, 3);
}

TEST_F(Initialisation, LinesAreCutAtTheirLimit) {
  const std::string start = complete(), key = "tmpdir=", value(8191 - key.size(), 't');
  EXPECT_EQ(init(start + key + value + "\n"), 0);
  EXPECT_EQ(variable("TMPDIR"), value);
  EXPECT_EQ(init(start + key + value + "x csid-default=d\ndebug-loglevel=2\n"), 0);
  EXPECT_EQ(variable("TMPDIR"), value);
  EXPECT_EQ(variable("QXCS_DEBUG_LOGLEVEL"), "2") << "the next line is read from its start";
}

TEST_F(Initialisation, ALevelIsReadAsANumber) {
  const std::pair<const char *, const char *> rows[] = {
      {"7", "7"}, {"-3", "-3"}, {"2x", "2"}, {"many", "0"}, {"", "0"}};
  for (const auto &[text, level] : rows) {
    EXPECT_EQ(init("debug-loglevel=\"" + std::string(text) + "\"\n" + complete()), 0) << text;
    EXPECT_EQ(variable("QXCS_DEBUG_LOGLEVEL"), level) << text;
    EXPECT_EQ(std::to_string(_cslog_level), level) << text;
  }
}

TEST_F(Initialisation, LogsToStandardErrorByDefault) {
  EXPECT_EQ(init("bindir=/b\ncsid-config=" + csid_file() + "\ncsid-default=c\n"), 0);
  EXPECT_THAT(stderr_, HasSubstr("RDM server is on-line.\n"));
  EXPECT_EQ(variable("QXCS_DEBUG_LOGFILE"), "(unset)");
}

TEST_F(Initialisation, WithoutAPathTheCommandsDirectoryIsThePath) {
  unsetenv("PATH");
  EXPECT_EQ(init(complete()), 0);
  EXPECT_EQ(variable("PATH"), "/opt/rdm/bin");
}

TEST_F(Initialisation, ReportsTheFirstMissingKeyInOrder) {
  const std::pair<std::string, const char *> rows[] = {
      {"# nothing\n# at all\n", "bindir"},
      {"csid-default=c\n", "bindir"},
      {"bindir=/b\n", "csid-config"},
      {"bindir=/b\ncsid-config=/c\n", "csid-default"},
  };
  for (const auto &[lines, key] : rows) {
    EXPECT_EQ(init(lines), -1) << key;
    EXPECT_EQ(stderr_, missing(key));
  }
  const PblockPtr config(host_param_create(3));
  testing::internal::CaptureStderr();
  EXPECT_EQ(rdm_init_real(config.get(), nullptr, nullptr), -1);
  testing::internal::GetCapturedStderr();
  EXPECT_STREQ(host_param_find("error", config.get()), missing("bindir").c_str());
}

TEST_F(Initialisation, StepsBeforeAMissingKeyAreNotUndone) {
  EXPECT_EQ(init("logfile=" + directory_.path("transactions.log") + "\n"), -1);
  EXPECT_NE(rdm_log_crit, nullptr);
  EXPECT_NE(rdm_service_crit, nullptr);
  EXPECT_EQ(variable("QXCS_DEBUG_LOGLEVEL"), "1");
  EXPECT_TRUE(support::file_exists(directory_.path("transactions.log")));
  EXPECT_NE(logfd, -1);
  EXPECT_EQ(variable("PATH"), "/usr/bin:/bin");
  EXPECT_EQ(host_.exits.size(), 1u);

  EXPECT_EQ(init("bindir=/b tmpdir=/t csid-default=c\n"), -1);
  EXPECT_EQ(variable("PATH"), "/b:/usr/bin:/bin");
  EXPECT_EQ(variable("TMPDIR"), "/t");

  csid_terminate();
  EXPECT_EQ(init("bindir=/b csid-config=" + csid_file() + "\n"), -1);
  EXPECT_EQ(csid_find("c"), nullptr);
  EXPECT_EQ(csid_default(nullptr), nullptr);
  EXPECT_EQ(host_.exits.size(), 1u) << "without a log there is no exit for it";
}

TEST_F(Initialisation, FailsWithoutEitherSection) {
  static int asked, refused;
  qxapi_host host = support::memory_host();
  host.crit_create = [] { return ++asked == refused ? nullptr : support::memory_host().crit_create(); };
  qxapi_bind(&host);
  for (refused = 1; refused <= 2; ++refused) {
    asked = 0;
    release_sections();
    std::filesystem::remove(directory_.path("debug.log"));
    EXPECT_EQ(init(complete()), -1) << refused;
    EXPECT_EQ(diagnostic_lines(), "WARNING: Critical section allocation failure.\n");
    EXPECT_EQ(variable("QXCS_DEBUG_LOGLEVEL"), "(unset)");
  }
  release_sections();
  refused = asked + 1;
  std::filesystem::remove(directory_.path("debug.log"));
  EXPECT_EQ(init("debug-loglevel=0\n" + complete()), -1);
  EXPECT_EQ(diagnostics(), "");
}

TEST_F(Initialisation, OpensTheTransactionLogForAppending) {
  const std::string path = directory_.write("transactions.log", "old\n");
  EXPECT_EQ(init(complete() + "logfile=" + path + "\n"), 0);
  EXPECT_STREQ(logfile, path.c_str());
  ASSERT_NE(logfd, -1);
  host_write_log(logfd, "new\n", 4);
  EXPECT_EQ(support::read_file(path), "old\nnew\n");
}

TEST_F(Initialisation, ContinuesWithoutATransactionLogThatCannotBeOpened) {
  const std::string path = directory_.path("missing/transactions.log");
  EXPECT_EQ(init(complete() + "logfile=" + path + "\n"), 0);
  EXPECT_EQ(logfd, -1);
  EXPECT_EQ(host_.reports,
            std::vector<std::string>{"0 rdm-init: Cannot append to " + path + ": No such file or directory"});
  EXPECT_EQ(host_.exits.size(), 3u);
}

TEST_F(Initialisation, CutsTheTransactionLogsPath) {
  std::string cut = directory_.path("transactions.log");
  cut.insert(cut.rfind('/'), 1023 - cut.size(), '/');
  const std::string lines = complete() + "logfile=" + cut + std::string(977, 'p') + "\n";
  const support::Trace trace;
  EXPECT_EQ(init(lines), 0);
  EXPECT_EQ(std::string(logfile), cut);
  EXPECT_THAT(trace.calls(), testing::Contains("open_append " + cut));
  EXPECT_TRUE(support::file_exists(directory_.path("transactions.log")));
  EXPECT_NE(logfd, -1);
}

TEST_F(Initialisation, RegistersTheExitsInOrder) {
  const std::string schema = directory_.write(
      "schema.rdm",
      "@SCHEMA { -\nschema-name{5}:\tBooks\nsoif-attribute-1{5}:\ttitle\nsystem-table-name-1{3}:\tDOC\n"
      "system-column-name-1{5}:\tTitle\n}\n");
  const std::string lines = complete() + "logfile=" + directory_.path("transactions.log") + "\n";
  csid_file("csid=\"c\" schema-description=\"" + schema + "\"\n");
  EXPECT_EQ(init(lines), 0);
  ASSERT_EQ(host_.exits.size(), 3u);
  const auto run = [this](size_t exit) { host_.exits[exit].first(host_.exits[exit].second); };
  run(0);
  EXPECT_EQ(logfd, -1);
  EXPECT_NE(csid_find("c"), nullptr);
  run(1);
  EXPECT_EQ(csid_find("c"), nullptr);
  // The last exit is another one: it closes neither log nor registry, and keeps the schema.
  csid_init(directory_.path("csid.conf").c_str(), "c");
  logfd = host_open_append(logfile);
  run(2);
  EXPECT_NE(logfd, -1);
  EXPECT_NE(csid_find("c"), nullptr);
  EXPECT_STREQ(schema_name(), "Books");
}

TEST_F(Initialisation, LoadsTheSchemaOfTheDefaultCatalog) {
  const std::string schema = directory_.write(
      "schema.rdm",
      "@SCHEMA { -\nschema-name{5}:\tBooks\nsoif-attribute-1{5}:\ttitle\nsystem-table-name-1{3}:\tDOC\n"
      "system-column-name-1{5}:\tTitle\n}\n");
  csid_file("csid=\"other\"\ncsid=\"c\" schema-description=\"" + schema + "\"\n");
  const std::string lines = "bindir=/b\ncsid-config=" + directory_.path("csid.conf") +
                            "\ncsid-default=c\ndebug-logfile=" + directory_.path("debug.log") + "\n";
  EXPECT_EQ(init(lines), 0);
  EXPECT_STREQ(schema_name(), "Books");
  char column[512];
  EXPECT_STREQ(schema_translate_soifattribute("title", column), "DOC.Title");
}

/// A catalog service needs no schema description. Regression: without one, an error named the file "(null)".
TEST_F(Initialisation, ReportsOnlyAConfiguredSchemaAsMissing) {
  const std::string lines = complete();
  EXPECT_EQ(init(lines), 0);
  csid_file("csid=\"c\" schema-description=\"\"\n");
  EXPECT_EQ(init(lines), 0);
  EXPECT_EQ(diagnostic_lines(),
            "RDM server is on-line.\n"
            "ERROR: Cannot initialize schema translator: (empty)\n"
            "RDM server is on-line.\n");
}

TEST_F(Initialisation, DiagnosticsComeInTheOrderOfTheSteps) {
  const std::string lines = complete();
  csid_file("csid=\"other\" alias-file=/nowhere\n");
  EXPECT_EQ(init(lines), 0);
  EXPECT_EQ(diagnostic_lines(),
            "ERROR: alias_init: Can't open /nowhere: No such file or directory\n"
            "ERROR: alias_init failed for other\n"
            "ERROR: Invalid default <CSID:c>!\n"
            "RDM server is on-line.\n");
}

TEST_F(Initialisation, ContinuesWithoutAReadableRegistry) {
  EXPECT_EQ(init("bindir=/b csid-config=/nowhere csid-default=c debug-logfile=" + directory_.path("debug.log")), 0);
  EXPECT_EQ(diagnostic_lines(),
            "ERROR: csid_init: /nowhere: No such file or directory\n"
            "RDM server is on-line.\n");
  EXPECT_STREQ(csid_default(nullptr), "c");
  EXPECT_EQ(host_.exits.size(), 2u);
}

/// A host that starts the service again without running the exits must not leak a descriptor.
TEST_F(Initialisation, SecondInitClosesTheFirstTransactionLog) {
  const std::string with_log = complete() + "logfile=" + directory_.path("transactions.log") + "\n";
  EXPECT_EQ(init(with_log), 0);
  const host_fd before = logfd;
  cslog_terminate();
  EXPECT_EQ(init(with_log), 0);
  EXPECT_EQ(logfd, before) << "the lowest descriptor is free again";
  cslog_terminate();
  EXPECT_EQ(init(complete()), 0);
  EXPECT_EQ(logfd, -1);
  EXPECT_STREQ(logfile, "");
  EXPECT_EQ(host_close(before), -1);
}

/// Regression: each start created two sections, which hosts cannot release.
TEST_F(Initialisation, SecondInitReusesTheSections) {
  EXPECT_EQ(init(complete()), 0);
  host_crit *const log = rdm_log_crit, *const service = rdm_service_crit;
  const support::Trace trace;
  EXPECT_EQ(init(complete()), 0);
  EXPECT_EQ(rdm_log_crit, log);
  EXPECT_EQ(rdm_service_crit, service);
  EXPECT_THAT(trace.calls(), testing::Not(testing::Contains("crit_create")));
}

TEST_F(Initialisation, SecondInitCreatesTheMissingSection) {
  static int asked;
  asked = 0;
  qxapi_host host = support::memory_host();
  host.crit_create = [] { return ++asked == 2 ? nullptr : support::memory_host().crit_create(); };
  qxapi_bind(&host);
  EXPECT_EQ(init(complete()), -1);
  host_crit *const log = rdm_log_crit;
  EXPECT_EQ(init(complete()), 0);
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(rdm_log_crit, log);
  EXPECT_NE(rdm_service_crit, nullptr);
}

TEST_F(Initialisation, CanBeRepeated) {
  EXPECT_EQ(init(complete()), 0);
  for (const auto &[fn, argument] : host_.exits) fn(argument);
  host_.exits.clear();
  EXPECT_EQ(init(complete()), 0);
  EXPECT_EQ(variable("PATH"), "/opt/rdm/bin:/opt/rdm/bin:/usr/bin:/bin");
}

}  // namespace
