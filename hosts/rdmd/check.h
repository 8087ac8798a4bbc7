// SPDX-License-Identifier: MIT
/// Checks a service configuration and everything that it names, without the plug-in and without changing anything.
///
/// The service itself starts with many a mistake in its configuration and reports it only when a request meets it; here
/// each is found beforehand, with its file and line.
#ifndef HOSTS_RDMD_CHECK_H
#define HOSTS_RDMD_CHECK_H

#include <string>
#include <vector>

namespace rdm::check {

enum class Severity {
  warning,  // works, but hardly as it was meant
  error     // something does not work
};

struct Finding {
  Severity severity;
  std::string file;
  int line;  // from 1; 0 when it concerns the whole file
  std::string text;
};

using Findings = std::vector<Finding>;

/// describe returns "FILE:LINE: error: TEXT", or "FILE: error: TEXT" for the whole file; "warning" likewise. Characters
/// that could end the line are written as escapes.
std::string describe(const Finding &finding);

/// limited returns at most 20 findings of each file, in their order; errors take precedence over warnings. Where a file
/// has more, a line behind its last one counts those left out, as an error if there is an error among them.
Findings limited(const Findings &findings);

/// has_errors tells whether anything is more than a warning.
bool has_errors(const Findings &findings);

/// check_syntax reads the service configuration and the list of catalog services that it names, line by line:
/// unreadable files, malformed lines, names and services given twice, missing names and values of the wrong kind.
Findings check_syntax(const std::string &config);

/// check_configuration does what check_syntax does and then looks at all that the lines name: directories, logs, the
/// external command, catalog databases and their indexes, alias files and descriptions. It finds what the caller of the
/// process may not read or write.
Findings check_configuration(const std::string &config);

/// CommandLine is what a server is started with besides its configuration.
struct CommandLine {
  std::string listen;      // HOST:PORT
  std::string access_log;  // empty: none; "-": standard output
  std::string error_log;   // empty: standard error
  std::string user;        // the user that runs the server; empty: the caller
};

/// check_command_line checks the address and the logs; its findings have "rdmd" for their file. With a user, it first
/// gives the process this user's rights for the rest of its life: this check and those after it find what the user may
/// do.
Findings check_command_line(const CommandLine &line);

}  // namespace rdm::check

#endif
