/// rdmd: the stand-alone host server.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "hosts/common/host_table.h"
#include "hosts/common/plugin.h"
#include "hosts/rdmd/check.h"
#include "hosts/rdmd/listen_address.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/options.h"
#include "hosts/rdmd/server.h"
#include "qxapi/standard_descriptors.h"

namespace {

using namespace rdmd;

hosts::Plugin load_plugin(const Settings &settings) {
  if (settings.plugin.empty()) throw hosts::PluginError("no plug-in was found; name it with --plugin");
  return hosts::Plugin(settings.plugin);
}

/// announce tells people and scripts where the server listens, whatever becomes of the error log.
void announce(const Server &server, ErrorLog &errors) {
  const std::string text = "listening on " + server.address();
  if (errors.to_file()) errors.info(text);
  std::fprintf(stderr, "rdmd: %s\n", text.c_str());
}

/// loads tells whether the plug-in can be loaded, and why not on standard error.
bool loads(const Settings &settings) {
  try {
    load_plugin(settings);
    return true;
  } catch (const hosts::PluginError &error) {
    std::fprintf(stderr, "rdmd: %s\n", error.what());
    return false;
  }
}

/// check_all reports on standard error what stands against serving these settings.
int check_all(const Settings &settings) {
  const bool loaded = loads(settings);
  const check::Findings findings = check::check_configuration(settings.config);
  for (const check::Finding &finding : findings) std::fprintf(stderr, "%s\n", check::describe(finding).c_str());
  if (!loaded || check::has_errors(findings)) return EXIT_FAILURE;
  std::printf("%s: the configuration is valid\n", settings.config.c_str());
  return EXIT_SUCCESS;
}

/// log_mistakes says in which lines the configuration is mistaken; whether the service can do with it is the plug-in's
/// to say.
void log_mistakes(const std::string &config, ErrorLog &errors) {
  for (const check::Finding &finding : check::check_syntax(config)) {
    const std::string text = check::describe(finding);
    finding.severity == check::Severity::error ? errors.error(text) : errors.warn(text);
  }
}

/// open_service initialises the plug-in and then lets clients connect: none meets a service that is not there. False,
/// with the reason in the error log, when the server cannot start.
bool open_service(const Settings &settings, hosts::Plugin &plugin, Server &server, ErrorLog &errors) {
  const std::string refused = plugin.init(settings.config);
  if (!refused.empty()) {
    errors.error(settings.config + ": " + refused);
    return false;
  }
  try {
    server.listen();
    return true;
  } catch (const ListenError &error) {
    errors.error(error.what());
    return false;
  }
}

int serve(const Settings &settings, ErrorLog &errors) {
  hosts::bind_host([&errors](const hosts::Report &report) { errors.report(report); });
  AccessLog access(settings.access_log);
  hosts::Plugin plugin = load_plugin(settings);
  // Binds its addresses: one that is in use is noticed before the plug-in reads anything.
  Server server(settings, plugin, errors, access);
  log_mistakes(settings.config, errors);
  if (!open_service(settings, plugin, server, errors)) {
    hosts::run_exits();
    return EXIT_FAILURE;
  }
  announce(server, errors);
  if (!server.run()) {
    errors.error("the plug-in does not return; the server ends without its exits");
    std::_Exit(EXIT_FAILURE);
  }
  hosts::run_exits();
  errors.info("stopped");
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
  if (!take_standard_descriptors()) return EXIT_FAILURE;
  int exit_code = EXIT_SUCCESS;
  const std::optional<Settings> settings = parse_options(argc, argv, exit_code);
  if (!settings) return exit_code;
  std::signal(SIGPIPE, SIG_IGN);
  try {
    if (settings->check) return check_all(*settings);
    ErrorLog errors(settings->error_log);
    try {
      return serve(*settings, errors);
    } catch (const std::exception &error) {
      errors.error(error.what());
    }
  } catch (const std::exception &error) {
    std::fprintf(stderr, "rdmd: %s\n", error.what());
  }
  return EXIT_FAILURE;
}
