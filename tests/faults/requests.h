// SPDX-License-Identifier: MIT
/// Requests to a small service, to be repeated while its host fails in one thing after the other.
#ifndef TESTS_FAULTS_REQUESTS_H
#define TESTS_FAULTS_REQUESTS_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/common/plugin.h"
#include "service/support/catalog.h"
#include "support/files.h"

namespace rdm::faults {

struct Request {
  std::string name;
  std::string method, uri, query, body;
  long file_operations = 0;  // at least so many are made for its answer
};

/// PrintTo and name_of show a request by its name in the reports of GoogleTest and in the names of tests.
void PrintTo(const Request &request, std::ostream *out);
std::string name_of(const ::testing::TestParamInfo<Request> &info);

/// requests returns one of each kind: answers from memory, from a file, from the catalog, and refusals. Only deliveries
/// are not among them, for which the service starts other programs.
const std::vector<Request> &requests();

/// Answer is what the host has of a request when the plug-in has returned.
struct Answer {
  hosts::Outcome outcome;
  std::string body;
  bool delimited;        // a client sees where the body ends; otherwise the connection breaks behind it
  long blocks_lost = 0;  // allocated in its course and not released
};

/// Service is the plug-in in a host whose memory and files are those of a table, with a catalog large enough for its
/// answers to be written to a file.
class Service {
 public:
  /// `host` serves memory and files. It must count the blocks that are alive in `live_blocks`. `logs` are more pairs of
  /// the configuration.
  Service(const qxapi_host &host, const long &live_blocks, const std::string &logs = "debug-loglevel=\"0\"");
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service();

  /// answer has the service answer a request; `arm` is called when the host has made it ready, `disarm` when the
  /// plug-in has returned.
  Answer answer(const Request &request, const std::function<void()> &arm = {},
                const std::function<void()> &disarm = {});
  /// serve does the same from any thread, without counting blocks.
  Answer serve(const Request &request, const std::function<void()> &arm = {}, const std::function<void()> &disarm = {});

 private:
  support::TemporaryDirectory directory_;
  const long &live_blocks_;
  hosts::Plugin plugin_;
};

/// is_honest tells whether an answer under failure is the right one, one that says that something failed, or one that
/// the host does not send as if it were whole.
bool is_honest(const Answer &answer, const Answer &right);

}  // namespace rdm::faults

#endif
