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

#include "hosts/common/host_table.h"
#include "hosts/common/plugin.h"
#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/check/check.h"
#include "hosts/rdmd/front/server.h"
#include "hosts/rdmd/leftovers.h"
#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/master/master.h"
#include "hosts/rdmd/master/upgrade.h"
#include "hosts/rdmd/options.h"
#include "hosts/rdmd/standard_stream.h"
#include "hosts/rdmd/startup.h"
#include "hosts/rdmd/systemd.h"
#include "qxapi/standard_descriptors.h"
#include "qxapi/temporary_directory.h"

using namespace rdm;

namespace {

using namespace rdm::rdmd;

hosts::Plugin load_plugin(const Settings &settings) {
  if (settings.plugin.empty()) throw hosts::PluginError("plug-in not found; name it with --plugin");
  return hosts::Plugin(settings.plugin);
}

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

/// clean_up removes temporary files of killed servers. It runs after the plug-in has set TMPDIR.
void clean_up(ErrorLog &errors) {
  const char *const directory = temporary_directory(::stat);
  const std::size_t files = directory != nullptr ? remove_leftovers(directory) : 0;
  if (files > 0) errors.info("removed " + std::to_string(files) + " temporary files of killed processes: " + directory);
}

/// open_service initialises the plug-in and then listens, so that no client connects before the service is ready.
/// Returns false, with the reason in the error log, if the server cannot start.
bool open_service(const Settings &settings, hosts::Plugin &plugin, Server &server, ErrorLog &errors) {
  const std::string refused = plugin.init(settings.config);
  if (!refused.empty()) {
    errors.error(settings.config + ": " + refused);
    return false;
  }
  clean_up(errors);
  try {
    server.listen();
    return true;
  } catch (const ListenError &error) {
    errors.error(error.what());
    return false;
  }
}

int serve(const Settings &settings, std::vector<InheritedSocket> inherited, Upgrade &upgrade, ErrorLog &errors) {
  hosts::bind_host([&errors](const hosts::Report &report) { errors.report(report); });
  const auto dropped = [&errors](std::size_t lines) { return errors.dropped("the access log", lines); };
  StandardStream output(stdout, STDOUT_FILENO, dropped);
  AccessLog access(settings.access_log, dropped, settings.access_json ? AccessFormat::json : AccessFormat::combined);
  hosts::Plugin plugin = load_plugin(settings);
  // Binding first: an address in use is reported before the plug-in reads anything.
  const auto warn = [&errors](const std::string &text) { errors.warn(text); };
  std::vector<ListeningSocket> sockets = open_listeners(settings, std::move(inherited), warn);
  TlsContextPtr tls = load_tls(settings, sockets, warn);
  Server server(settings, plugin, errors, access, std::move(sockets), std::move(tls));
  log_mistakes(settings.config, errors);
  if (!open_service(settings, plugin, server, errors)) {
    hosts::run_exits();
    return EXIT_FAILURE;
  }
  announce(server.address(), server.admin_address(), errors);
  const ServiceManager manager;
  manager.ready("Listening on " + server.address());
  server.report_to(manager);
  upgrade.report_ready();
  if (!server.run()) {
    errors.error("the plug-in has not returned from its last call; exiting without its exit functions");
    std::_Exit(EXIT_FAILURE);
  }
  hosts::run_exits();
  errors.info("stopped");
  return EXIT_SUCCESS;
}

/// serve_with_logs runs the server and returns the exit status. While its logs are not open, the signals that reopen
/// logs are ignored.
int serve_with_logs(const Settings &settings, std::vector<InheritedSocket> inherited, Upgrade &upgrade) {
  for (const int signal : {SIGUSR1, SIGHUP}) std::signal(signal, SIG_IGN);
  StandardStream standard_error(stderr, STDERR_FILENO);
  ErrorLog errors(settings.error_log);
  int status = EXIT_FAILURE;
  try {
    status = serve(settings, std::move(inherited), upgrade, errors);
  } catch (const std::exception &error) {
    errors.error(error.what());
  }
  for (const int signal : {SIGUSR1, SIGHUP}) std::signal(signal, SIG_IGN);
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  if (!take_standard_descriptors()) return EXIT_FAILURE;
  // Commands that the plug-in runs must not inherit descriptors of our caller. Descriptors opened later are
  // close-on-exec.
  ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC);
  std::vector<InheritedSocket> inherited = take_inherited_sockets();
  Upgrade upgrade(argv);
  int exit_code = EXIT_SUCCESS;
  const std::optional<Settings> settings = parse_options(argc, argv, exit_code);
  if (!settings) return exit_code;
  // Let write() fail with EPIPE or EFBIG instead. Only a master replaces its program at SIGUSR2.
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGUSR2}) std::signal(signal, SIG_IGN);
  try {
    if (settings->check) return check_all(*settings);
    const auto run = settings->workers > 0 ? run_master : serve_with_logs;
    return run(*settings, std::move(inherited), upgrade);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "rdmd: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
