// SPDX-License-Identifier: MIT
/// What the command line says, and where a verb reads and writes.
#ifndef MINIDBA_OPTIONS_H
#define MINIDBA_OPTIONS_H

#include <ctime>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "catalog/os/error.h"

namespace rdm::minidba {

// The verbs speak of catalogs, records and files without a prefix.
using namespace rdm::catalog;

/// Options are the same record for all verbs; each reads the fields that concern it.
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
  std::string rejects;                  // file for what is refused; empty when it is not kept
  bool replace = false;                 // a catalog that is there
  bool no_header = false;               // an import needs no export header
  bool allow_empty = false;             // an import may leave no descriptions
  double wait = -1;                     // seconds to wait for the lock; below zero for ever
  bool skip_damaged = false;            // records and pages, instead of refusing the work
  bool accept_damage = false;           // records that contradict the index are taken as they are
};

/// Console is the program's surroundings. What programs read goes to `out`, what people read to `errors`.
struct Console {
  int input;  // descriptor
  std::ostream &out;
  std::ostream &errors;
  bool progress;       // somebody looks at `errors` and wants to be told how far the work is
  bool out_is_screen;  // and at `out`
  std::function<time_t()> clock = [] { return std::time(nullptr); };  // tells the time
};

}  // namespace rdm::minidba

#endif
