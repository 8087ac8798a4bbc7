// SPDX-License-Identifier: MIT
/// The whole system as its operators set it up: catalogs made by minidba, served by rdmd with the plug-in.
#ifndef TESTS_E2E_SERVICE_H
#define TESTS_E2E_SERVICE_H

#include <signal.h>

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

/// run runs a command of the shell, fails the test unless it succeeds, and returns what it printed.
std::string run(const std::string &command);

/// filled returns the text of an example template with its directories filled in.
std::string filled(const std::string &name, const std::string &directory);

/// make_catalog imports a file of descriptions into FOLDER/NAME.db and writes the index.
void make_catalog(const std::string &directory, const std::string &name, const std::string &descriptions);

/// IndexEntry is what the server reads of one entry of an index.
struct IndexEntry {
  std::uint32_t time;
  std::uint32_t number;
};
std::vector<IndexEntry> read_index(const std::string &path);

/// record returns a record of a catalog, byte for byte.
std::string record(const std::string &database, std::uint32_t number);

/// answer_header is the header of an answer of the given type, with an error message where one is given.
std::string answer_header(const std::string &type, const std::string &message = "");

/// refusal is the whole answer to a request that is refused with `text`.
std::string refusal(const std::string &text);

/// header is the header of a message to the server.
std::string request_header(const std::string &type, const std::string &csid = "", const std::string &more = "");

/// rd_request is a whole request for descriptions.
std::string rd_request(const std::string &csid, const std::string &attributes);

/// attribute is one attribute as SOIF writes it.
std::string attribute(const std::string &name, const std::string &value);

/// ServiceTest has the example catalogs in a directory of its own, which all its tests share and leave as it is.
class ServiceTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();

  /// start serves a configuration with logs of its own: the examples', unless another list of services is given. More
  /// threads than usual read and write, so that they meet more often.
  void start(const std::string &services = "");
  int stop();

  support::HttpResponse get(const std::string &target) { return support::http_get(port_, target); }
  support::HttpResponse post(const std::string &target, const std::string &body, const std::string &fields = "");

  /// expected is the answer that sends these entries of a catalog, computed from its files.
  static std::string expected(const std::string &database, const std::vector<IndexEntry> &entries);
  static std::string catalog(const std::string &name) { return shared_->path(name + ".db"); }

  std::string transactions() const { return support::read_file(directory_.path("rdm.log")); }
  std::string access() const { return support::read_file(directory_.path("access")); }

  static std::unique_ptr<support::TemporaryDirectory> shared_;
  support::TemporaryDirectory directory_;  // of this test: configuration and logs
  std::unique_ptr<support::RdmdProcess> server_;
  int port_ = 0;
};

}  // namespace rdm::e2e

#endif
