// SPDX-License-Identifier: MIT
/// The options on the command line of rdmctl.
#ifndef RDMCTL_OPTIONS_H
#define RDMCTL_OPTIONS_H

#include <string>
#include <vector>

#include "tools/common/program.h"

namespace rdm::rdmctl {

/// Options is one record for all verbs. Each verb reads the fields of its own options.
struct Options {
  std::string config;              // path of the service's configuration; empty if not given
  std::string csid;                // of the catalog service
  std::string target;              // CSID, or path of a database
  std::string other;               // the second of two such words, or a file
  std::string from;                // name of the gatherer; empty if not given
  std::vector<std::string> files;  // submissions; "-" is standard input
  bool deletes = false;            // an rd-delete-response deletes the descriptions that it names
  bool full_feed = false;          // descriptions that the feed lacks are deleted
  std::string max_delete = "10%";  // of these deletions: a number, or a share with "%"
  bool validate = false;           // against schema and taxonomy
  bool strict = false;             // rejects what does not fit them
  std::string spool;               // directory with submissions
  double wait = -1;                // seconds to wait for the lock; below zero without limit
  bool dry_run = false;
  bool quiet = false;
  bool json = false;
  bool times = false;                   // diff: compare times of change too
  bool monitor = false;                 // check: a line and exit statuses for monitoring plugins
  std::string since;                    // a time; empty for all
  std::vector<std::string> attributes;  // empty for all
  std::string action;                   // of taxonomy: show, find or check; of describe: the kind
  std::string text;                     // taxonomy find: what to find
  long hits = 0;                        // preview: at most so many; 0 for all
  long last = 0;                        // imports: show only so many; 0 for all
};

/// Exit statuses; after a Failure it is tools::exit_failure.
using tools::exit_done;
constexpr int exit_incomplete = 1;  // some descriptions were not accepted, or a later command failed

}  // namespace rdm::rdmctl

#endif
