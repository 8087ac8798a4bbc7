// SPDX-License-Identifier: MIT
/// The whole system as operators set it up: catalogs made by minidba, served by rdmd with the plug-in.
#ifndef TESTS_E2E_SERVICE_H
#define TESTS_E2E_SERVICE_H

#include <signal.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "examples/catalogs.h"
#include "hosts/rdmd/rdmd_process.h"
#include "support/files.h"

namespace rdm::e2e {

inline const std::string rfc = "x-catalog://localhost:8380/rfc";
inline const std::string classics = "x-catalog://localhost:8380/classics";

/// run runs a shell command and returns its output; it fails the test if the command fails.
std::string run(const std::string &command);

/// filled returns the text of an example template with its directories filled in.
std::string filled(const std::string &name, const std::string &directory);

/// make_catalog imports a file of descriptions into DIRECTORY/NAME.db and writes the index.
void make_catalog(const std::string &directory, const std::string &name, const std::string &descriptions);

/// IndexEntry is one entry of an index.
struct IndexEntry {
  std::uint32_t time;
  std::uint32_t number;
};
std::vector<IndexEntry> read_index(const std::string &path);

/// record returns a record of a catalog, byte for byte.
std::string record(const std::string &database, std::uint32_t number);

/// answer_header returns the header of an answer of this type, with an error message unless that is empty.
std::string answer_header(const std::string &type, const std::string &message = "");

/// refusal returns the complete answer to a request that is refused with `text`.
std::string refusal(const std::string &text);

/// header returns the header of a message to the server.
std::string request_header(const std::string &type, const std::string &csid = "", const std::string &more = "");

/// rd_request returns a complete request for descriptions.
std::string rd_request(const std::string &csid, const std::string &attributes);

/// attribute returns one attribute in SOIF.
std::string attribute(const std::string &name, const std::string &value);

/// ServiceTest has the example catalogs in a directory that all its tests share and do not change.
class ServiceTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();

  /// share_large_catalog makes a catalog "rfc" of `records` descriptions of 3 KB, instead of the examples, for the
  /// tests of a suite.
  static void share_large_catalog(std::size_t records);

  /// start runs the server with the examples' configuration, or with another list of services, and with logs of its
  /// own, and with `more` arguments. It uses more I/O threads than usual, to provoke races.
  void start(const std::string &services = "", const std::vector<std::string> &more = {});
  int stop();

  support::HttpResponse get(const std::string &target) { return support::http_get(port_, target); }
  support::HttpResponse post(const std::string &target, const std::string &body, const std::string &fields = "");

  /// expected returns the answer that sends these entries of a catalog, computed from its files.
  static std::string expected(const std::string &database, const std::vector<IndexEntry> &entries);
  static std::string catalog(const std::string &name) { return shared->path(name + ".db"); }

  std::string transactions() const { return support::read_file(directory_.path("rdm.log")); }
  std::string access() const { return support::read_file(directory_.path("access")); }

  static std::unique_ptr<support::TemporaryDirectory> shared;
  support::TemporaryDirectory directory_;  // of this test: configuration and logs
  std::unique_ptr<support::RdmdProcess> server_;
  int port_ = 0;
};

}  // namespace rdm::e2e

#endif
