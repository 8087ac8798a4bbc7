// SPDX-License-Identifier: MIT
/// A host without a server: it counts allocations and records answers and reports.
#ifndef TESTS_SUPPORT_MEMORY_HOST_H
#define TESTS_SUPPORT_MEMORY_HOST_H

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

namespace rdm::support {

/// HostRecord records the calls of the code under test.
struct HostRecord {
  long live_blocks = 0;                                    // blocks allocated and not yet released
  long allocations = 0;                                    // allocations requested so far
  size_t largest_allocation = 0;                           // bytes of the largest of them
  long fail_allocation = 0;                                // the number of the allocation that fails, 0 for none
  bool fail_net_write = false;                             // net_write and buffer_send return -1
  bool fail_crit_create = false;                           // crit_create returns null
  bool fail_input = false;                                 // input_next returns -1
  int crit_depth = 0;                                      // sections entered and not left
  int status = 0;                                          // of the last set_status
  std::string reason;                                      // of the last set_status; empty for null
  int responses_started = 0;                               // calls of start_response
  std::string sent;                                        // all bytes of net_write and buffer_send
  std::vector<std::string> reports;                        // "degree function: text" of each report_error
  std::vector<std::pair<void (*)(void *), void *>> exits;  // register_exit, in order
};

/// bind_memory_host binds the host and clears its record.
void bind_memory_host();
HostRecord &host_record();
/// memory_host returns the host's table, for tests that replace one of its functions and bind the result.
qxapi_host memory_host();

/// HostTest runs each test on a new memory host. After the members of the fixture are destroyed it expects that every
/// block was released.
class HostTest : public ::testing::Test {
 protected:
  HostTest();
  ~HostTest() override;
  HostRecord &host = host_record();
};

/// Exchange is one request with its session as a host passes it to the plug-in.
class Exchange {
 public:
  Exchange(const std::string &method, const std::string &uri, std::string body = "");
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;
  ~Exchange();

  /// header adds a request header (lower-case name).
  Exchange &header(const std::string &name, const std::string &value);
  /// query sets the query string of the request line.
  Exchange &query(const std::string &text);
  /// response returns a response header, or an empty string; responses counts the entries of that name.
  std::string response(const std::string &name) const;
  int responses(const std::string &name) const;
  /// var returns a request variable, or an empty string.
  std::string var(const std::string &name) const;

  Session session{};
  Request request{};

 private:
  std::string body_;
  host_input input_{};
};

}  // namespace rdm::support

#endif
