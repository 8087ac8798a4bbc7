// SPDX-License-Identifier: MIT
/// The options on the command line, and the streams of a verb.
#ifndef MINIDBA_OPTIONS_H
#define MINIDBA_OPTIONS_H

#include <ctime>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "catalog/os/error.h"

namespace rdm::minidba {

// The verbs use the names of the catalog library without a prefix.
using namespace rdm::catalog;

/// Options is one record for all verbs. Each verb reads the fields of its own options.
struct Options {
  std::string verb;
  std::string database;
  std::string index;  // empty when not given
  bool quiet = false;
  bool json = false;
  bool dry_run = false;
  std::string since;                    // a time; empty for all
  std::vector<std::string> attributes;  // empty for all
  std::string format;                   // soif, json or tsv
  std::vector<std::string> arguments;   // the words after the verb
  std::vector<std::string> inputs;      // streams to read, "-" is standard input; empty for that alone
  std::string file;                     // to write to; empty for standard output
  std::string rejects;                  // file for rejected objects; empty if they are not kept
  bool replace = false;                 // import: replace an existing catalog
  bool no_header = false;               // import: the stream needs no export header
  bool allow_empty = false;             // import: the stream may have no descriptions
  double wait = -1;                     // seconds to wait for the lock; below zero without limit
  bool skip_damaged = false;            // leave out damaged records and pages instead of failing
  bool accept_damage = false;           // index: accept records that contradict the old index
};

/// Console is the standard streams: `out` for output that programs read, `errors` for messages to people.
struct Console {
  int input;  // descriptor
  std::ostream &out;
  std::ostream &errors;
  bool progress;                                                      // show progress: `errors` is a terminal
  bool out_is_screen;                                                 // `out` is a terminal
  std::function<time_t()> clock = [] { return std::time(nullptr); };  // seconds since 1970
};

}  // namespace rdm::minidba

#endif
