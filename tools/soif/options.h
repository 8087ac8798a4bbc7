// SPDX-License-Identifier: MIT
/// The options on the command line, and the streams of a verb.
#ifndef SOIF_OPTIONS_H
#define SOIF_OPTIONS_H

#include <iosfwd>
#include <string>
#include <vector>

namespace rdm::soif_tool {

constexpr int exit_rejected = 1;  // done, but not with everything: some of the input was rejected

/// Options is one record for all verbs. Each verb reads the fields of its own options.
struct Options {
  std::string verb;
  bool quiet = false;
  bool json = false;                // messages as JSON
  std::string database, url;        // edit: the description to change
  std::vector<std::string> inputs;  // files to read, "-" is standard input; empty for that alone
  std::string output;               // file to write; empty for standard output
  std::string format;               // from and to: the other format
  std::string map;                  // file with the names of attributes in it; empty for none
  bool gathers = false;             // to: numbered attributes stand together
  std::string template_name;        // from: of descriptions that come without one; empty for the default
  bool oai_identifiers = false;     // from oai-dc: the URL is the identifier of a record
  std::string deletions;            // from oai-dc: file for identifiers of deleted records; empty if they are not kept
  std::string rejects;              // file for rejected parts of the input; empty if they are not kept
};

/// Console is the standard streams: `out` for output that programs read, `errors` for messages to people.
struct Console {
  int input;  // descriptor
  std::ostream &out;
  std::ostream &errors;
  bool progress;  // show progress: `errors` is a terminal
};

/// Verb performs a verb and returns the exit status of the program. It throws a catalog::Failure if it cannot.
using Verb = int (*)(const Options &options, const Console &console);

int format(const Options &options, const Console &console);
int edit(const Options &options, const Console &console);
int from(const Options &options, const Console &console);
int to(const Options &options, const Console &console);
int check(const Options &options, const Console &console);

}  // namespace rdm::soif_tool

#endif
