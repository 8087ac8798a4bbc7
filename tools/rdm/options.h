// SPDX-License-Identifier: MIT
/// The options on the command line, and the streams of a verb.
#ifndef TOOLS_RDM_OPTIONS_H
#define TOOLS_RDM_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <string>
#include <thread>
#include <vector>

namespace rdm::client {

/// Options is one record for all verbs. Each verb reads the fields of its own options.
struct Options {
  std::string verb;
  std::string url;         // of the service, as http://HOST:PORT/rdm
  std::string csid;        // empty: the server's default
  std::string state;       // directory; empty: the usual one
  int retries = 5;         // after the first attempt, without progress
  double timeout = 60;     // seconds without a byte
  double retry_delay = 1;  // seconds before the first retry
  std::string ca_file;     // empty: the system's certificates
  bool quiet = false;
  bool verbose = false;
  bool json = false;
  std::string what;                     // describe: server, schema or taxonomy
  std::vector<std::string> urls;        // get: the descriptions
  std::string since;                    // harvest: a time, or "last"; empty for all
  std::vector<std::string> attributes;  // harvest: empty for all
  int64_t limit = 0;                    // harvest: at most so many descriptions; 0 for all
  std::string format = "soif";
  std::string output;         // harvest: file; empty for standard output
  std::string target;         // mirror: database or directory
  double full_every = 86400;  // mirror: seconds between comparisons of the whole list
  bool believe = false;       // harvest and mirror: accept that all or most descriptions are gone
};

/// Console is the standard streams: `out` for output that programs read, `errors` for messages to people.
struct Console {
  std::ostream &out;
  std::ostream &errors;
  bool progress;                                                      // show progress: `errors` is a terminal
  std::function<time_t()> clock = [] { return std::time(nullptr); };  // seconds since 1970
  std::function<void(double seconds)> sleep = [](double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  };
};

}  // namespace rdm::client

#endif
