// SPDX-License-Identifier: MIT
/// Requests to a small service, to be repeated while the host fails at one point after another.
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

struct SampleRequest {
  std::string name;
  std::string method, uri, query, body;
  long file_operations = 0;  // at least this many file operations are made
};

/// PrintTo and name_of show a request by its name in reports and test names.
void PrintTo(const SampleRequest &request, std::ostream *out);
std::string name_of(const ::testing::TestParamInfo<SampleRequest> &info);

/// requests returns one request of each kind: answers from memory, from a file, from the catalog, and refusals.
/// Submissions are missing, because the service runs other programs for them.
const std::vector<SampleRequest> &requests();

/// Answer is the host's result of a request.
struct Answer {
  hosts::Outcome outcome;
  std::string body;
  bool delimited;        // the client can see where the body ends; otherwise the connection is broken off after it
  long blocks_lost = 0;  // blocks allocated by the request, and another one without failures, and not released
};

/// Service is the plug-in in a host with the given memory and file functions, with a catalog large enough that answers
/// are written to a file.
class Service {
 public:
  /// `host` provides memory and files and must keep the number of live blocks in `live_blocks`. `logs` holds further
  /// pairs of the configuration.
  Service(const qxapi_host &host, const long &live_blocks, const std::string &logs = "debug-loglevel=\"0\"");
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  ~Service();

  /// answer passes a request to the service. `arm` is called just before the plug-in, `disarm` just after it.
  Answer answer(const SampleRequest &request, const std::function<void()> &arm = {},
                const std::function<void()> &disarm = {});
  /// serve does the same without counting blocks; any thread may call it.
  Answer serve(const SampleRequest &request, const std::function<void()> &arm = {},
               const std::function<void()> &disarm = {});

  /// change_catalog writes the index of the catalog again, so that the next request opens the catalog again.
  void change_catalog();

 private:
  support::TemporaryDirectory directory_;
  const long &live_blocks_;
  hosts::Plugin plugin_;
};

/// is_honest returns true if an answer under failure is the right one, an error message, or one that the host does not
/// send as complete.
bool is_honest(const Answer &answer, const Answer &right);

}  // namespace rdm::faults

#endif
