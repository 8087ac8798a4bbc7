// SPDX-License-Identifier: MIT
/// A catalog made by minidba and served by rdmd.
#ifndef TESTS_TOOLS_RDM_SERVED_CATALOG_H
#define TESTS_TOOLS_RDM_SERVED_CATALOG_H

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "hosts/rdmd/rdmd_process.h"
#include "support/files.h"

namespace rdm::client {

class ServedCatalog {
 public:
  /// ServedCatalog has so many descriptions, "x:0" and so on, and serves them. The server gets `more` arguments.
  explicit ServedCatalog(int descriptions, std::vector<std::string> more = {});

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/rdm"; }
  int port() const { return port_; }
  std::string database() const { return directory_.path("source.db"); }

  using Titles = std::vector<std::pair<std::string, std::string>>;  // by URL
  /// update and erase change the catalog as minidba does, and write the index. `changed` is called before that.
  void update(
      const Titles &titles, const std::function<void()> &changed = [] {});
  void erase(const std::vector<std::string> &urls);
  /// set_clock_back makes the newest description newer than the clock by a year, as if the clock was put back since.
  void set_clock_back();
  /// restart ends the server at once and starts another one on the same port.
  void restart();

  /// listed returns the descriptions as the server sends them; record_of returns one.
  std::string listed() const;
  std::string record_of(const std::string &url) const;

  static const std::string schema;

 private:
  void run_minidba(const std::vector<std::string> &words, const std::string &input) const;
  void write_index() const;
  void start();

  std::vector<std::string> more_;
  support::TemporaryDirectory directory_;
  const support::ReservedPort reserved_;
  std::unique_ptr<support::RdmdProcess> server_;
  int port_ = 0;
};

}  // namespace rdm::client

#endif
