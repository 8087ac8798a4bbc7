// SPDX-License-Identifier: MIT
#include "hosts/rdmd/single_process.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <utility>

#include "hosts/common/host_table.h"
#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/front/server.h"
#include "hosts/rdmd/leftovers.h"
#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/resource_limits.h"
#include "hosts/rdmd/signals.h"
#include "hosts/rdmd/standard_stream.h"
#include "hosts/rdmd/startup.h"
#include "hosts/rdmd/systemd.h"
#include "qxapi/temporary_directory.h"

namespace rdm::rdmd {
namespace {

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

/// ignore_signals ignores those that the server obeys while it runs, for the time before and after that, and those
/// that were held. Commands of the plug-in must not start with blocked signals.
void ignore_signals() {
  for (const int signal : {SIGUSR1, SIGUSR2, SIGHUP}) std::signal(signal, SIG_IGN);
  unblock_signals();
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

}  // namespace

hosts::Plugin load_plugin(const Settings &settings) {
  if (settings.plugin.empty()) throw hosts::PluginError("plug-in not found; name it with --plugin");
  return hosts::Plugin(settings.plugin);
}

int run_single_process(const Settings &settings, std::vector<InheritedSocket> inherited, Upgrade &upgrade) {
  ignore_signals();
  StandardStream standard_error(stderr, STDERR_FILENO);
  ErrorLog errors(settings.error_log);
  int status = EXIT_FAILURE;
  try {
    require_limits(settings);
    status = serve(settings, std::move(inherited), upgrade, errors);
  } catch (const std::exception &error) {
    errors.error(error.what());
  }
  ignore_signals();
  return status;
}

}  // namespace rdm::rdmd
