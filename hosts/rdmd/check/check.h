// SPDX-License-Identifier: MIT
/// Checks a service configuration and all files that it names, without the plug-in and without changing anything.
///
/// The service starts despite many mistakes in its configuration and reports each only when a request runs into it.
/// This check finds them beforehand, with file and line.
#ifndef HOSTS_RDMD_CHECK_CHECK_H
#define HOSTS_RDMD_CHECK_CHECK_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rdm::check {

enum class Severity {
  warning,  // works, but probably not as intended
  error     // something does not work
};

struct Finding {
  Severity severity;
  std::string file;
  int line;  // from 1; 0 if the finding concerns the whole file
  std::string text;
};

using Findings = std::vector<Finding>;

/// describe returns "FILE:LINE: error: TEXT", or "FILE: error: TEXT" for the whole file, with "warning" for a warning.
/// Control characters are escaped.
std::string describe(const Finding &finding);

/// limited returns at most 20 findings of each file, in their order; errors take precedence over warnings. If findings
/// of a file are left out, a finding after its last one counts them; it is an error if one of them is.
Findings limited(const Findings &findings);

/// has_errors returns true if any finding is an error.
bool has_errors(const Findings &findings);

/// setting_names returns the names that the service configuration may have.
std::span<const std::string_view> setting_names();

/// check_syntax checks the lines of the service configuration and of the list of catalog services that it names:
/// unreadable files, malformed lines, duplicate names and services, missing names, and values of the wrong kind.
Findings check_syntax(const std::string &config);

/// check_configuration calls check_syntax, and then checks everything that the lines name: directories, logs, the
/// external command, catalog databases and their indexes, alias files and descriptions. It checks reading and writing
/// with the rights of the calling process.
Findings check_configuration(const std::string &config);

/// ConfiguredCatalog is a catalog service of a configuration.
struct ConfiguredCatalog {
  std::string csid;
  std::string database;  // its path; empty: none
};

/// configured_catalogs returns the catalog services that the service takes from its configuration: of several with the
/// same CSID the first. It returns fewer, or none, if the files cannot be read.
std::vector<ConfiguredCatalog> configured_catalogs(const std::string &config);

/// CommandLine holds the options of a server that are checked besides its configuration.
struct CommandLine {
  std::vector<std::string> listen;  // HOST:PORT or unix:PATH
  std::string certificate, key;     // of TLS; empty: none
  std::string access_log;           // empty: none; "-": standard output
  std::string error_log;            // empty: standard error
  std::string user;                 // the user that runs the server; empty: the caller
};

/// check_command_line checks the addresses, the files of TLS and the logs; its findings have the file "rdmd". If a user
/// is given, it first changes the process to that user for the rest of its life, so that this and later checks use that
/// user's rights.
Findings check_command_line(const CommandLine &line);

}  // namespace rdm::check

#endif
