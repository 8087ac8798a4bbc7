// SPDX-License-Identifier: MIT
/// The options on the command line, and the streams of the program.
#ifndef RDMGATHER_OPTIONS_H
#define RDMGATHER_OPTIONS_H

#include <iosfwd>
#include <string>

namespace rdm::gather {

struct Options {
  std::string directory;
  std::string base_url;
  std::string state;      // file that remembers documents from run to run; empty for none
  std::string deletions;  // file for the URLs of documents that have vanished; empty for none
  bool believe = false;   // accept that all documents have vanished
  unsigned jobs = 0;      // documents that are read at a time; 0 for one a processor
  bool json = false;      // messages as JSON
  bool quiet = false;
};

/// Console is the standard streams: `out` for descriptions, `errors` for messages to people.
struct Console {
  int output;  // descriptor of `out`, -1 if it has none
  std::ostream &out;
  std::ostream &errors;
  bool is_watched;  // show progress: `errors` is a terminal
};

}  // namespace rdm::gather

#endif
