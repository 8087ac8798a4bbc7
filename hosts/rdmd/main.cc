// SPDX-License-Identifier: MIT
/// rdmd: the stand-alone host server.

#include <linux/close_range.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/check/check.h"
#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/master/master.h"
#include "hosts/rdmd/master/upgrade.h"
#include "hosts/rdmd/options.h"
#include "hosts/rdmd/signals.h"
#include "hosts/rdmd/single_process.h"
#include "hosts/rdmd/systemd.h"
#include "qxapi/standard_descriptors.h"

using namespace rdm;

namespace {

using namespace rdm::rdmd;

/// loads returns true if the plug-in can be loaded, and otherwise prints the reason on standard error.
bool loads(const Settings &settings) {
  try {
    load_plugin(settings);
    return true;
  } catch (const hosts::PluginError &error) {
    std::fprintf(stderr, "rdmd: %s\n", error.what());
    return false;
  }
}

/// addresses returns the addresses of all options that name one.
std::vector<std::string> addresses(const Settings &settings) {
  std::vector<std::string> all = listen_texts(settings);
  if (!settings.admin.empty()) all.push_back(settings.admin);
  return all;
}

/// check_all prints the faults of these settings on standard error. Returns the exit status.
int check_all(const Settings &settings) {
  // First, because this changes the process's user, and the plug-in must be readable by that user.
  check::Findings findings = check::check_command_line({addresses(settings), settings.tls.certificate, settings.tls.key,
                                                        settings.access_log, settings.error_log, settings.user});
  const bool loaded = loads(settings);
  const check::Findings more = check::check_configuration(settings.config);
  findings.insert(findings.end(), more.begin(), more.end());
  for (const check::Finding &finding : findings) std::fprintf(stderr, "%s\n", check::describe(finding).c_str());
  if (!loaded || check::has_errors(findings)) return EXIT_FAILURE;
  const std::string whose = settings.user.empty() ? "" : " for the user " + settings.user;
  std::printf("%s: the configuration is valid%s\n", settings.config.c_str(), whose.c_str());
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
  hold_signals();
  if (!take_standard_descriptors()) return EXIT_FAILURE;
  // Commands that the plug-in runs must not inherit descriptors of our caller. Descriptors opened later are
  // close-on-exec.
  ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  std::vector<InheritedSocket> inherited = take_inherited_sockets();
  Upgrade upgrade(argv);
  int exit_code = EXIT_SUCCESS;
  const std::optional<Settings> settings = parse_options(argc, argv, exit_code);
  if (!settings) return exit_code;
  // Let write() fail with EPIPE or EFBIG instead.
  for (const int signal : {SIGPIPE, SIGXFSZ}) std::signal(signal, SIG_IGN);
  // If our caller ignored it, nothing would be learnt of the ends of children.
  std::signal(SIGCHLD, SIG_DFL);
  try {
    if (settings->check) return check_all(*settings);
    const auto run = settings->workers > 0 ? run_master : run_single_process;
    return run(*settings, std::move(inherited), upgrade);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "rdmd: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
