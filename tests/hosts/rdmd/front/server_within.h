// SPDX-License-Identifier: MIT
/// A server within the test program, for tests that use its parts directly.
#ifndef TESTS_HOSTS_RDMD_FRONT_SERVER_WITHIN_H
#define TESTS_HOSTS_RDMD_FRONT_SERVER_WITHIN_H

#include <string>
#include <utility>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/front/server.h"
#include "support/directories.h"
#include "support/files.h"

namespace rdm::support {

/// ServerWithin makes a server with `settings` and the test plug-in; a test calls run or hands it connections.
class ServerWithin {
 public:
  enum class Listen { no, yes };
  explicit ServerWithin(rdmd::Settings settings = {}, Listen listen = Listen::yes)
      : settings_(on_any_port(std::move(settings))) {
    if (listen == Listen::yes) server_.listen();
  }

  rdmd::Server &operator*() { return server_; }
  rdmd::Server *operator->() { return &server_; }
  const rdmd::Server *operator->() const { return &server_; }

  /// errors returns the contents of the error log.
  std::string errors() const { return read_file(directory_.path("errors")); }
  /// access returns the contents of the access log.
  std::string access() const { return read_file(directory_.path("access")); }

 private:
  static rdmd::Settings on_any_port(rdmd::Settings settings) {
    if (settings.listen.empty()) settings.listen = {"127.0.0.1:0"};
    return settings;
  }

  const TemporaryDirectory directory_;
  const rdmd::Settings settings_;
  rdmd::ErrorLog errors_{directory_.path("errors")};
  rdmd::AccessLog access_{directory_.path("access")};
  hosts::Plugin plugin_{in_build("tests/test_plugin.so")};
  rdmd::Server server_{settings_, plugin_, errors_, access_,
                       rdmd::open_listeners(settings_, {}, [this](const std::string &text) { errors_.warn(text); })};
};

}  // namespace rdm::support

#endif
