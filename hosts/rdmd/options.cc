// SPDX-License-Identifier: MIT
#include "hosts/rdmd/options.h"

#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>

#include "cli/command_line.h"
#include "hosts/rdmd/limit_options.h"

namespace rdm::rdmd {
namespace {

namespace fs = std::filesystem;

/// default_plugin looks for the plug-in beside the program's own directory, so that a build or a relocated installation
/// finds its own, and then in the configured installation directory.
std::string default_plugin() {
  std::error_code ignored;
  const fs::path prefix = fs::read_symlink("/proc/self/exe", ignored).parent_path().parent_path();
  for (const fs::path &directory :
       {prefix / "lib", prefix / RDM_LIBRARY_DIRECTORY, fs::path(RDM_FULL_LIBRARY_DIRECTORY)})
    for (const char *name : {"librdm.so", "librdm.so.1"})
      if (fs::exists(directory / name, ignored)) return (directory / name).lexically_normal().string();
  return {};
}

/// cores returns how many processors this process may use, at least one.
int cores() {
  cpu_set_t allowed;
  return ::sched_getaffinity(0, sizeof allowed, &allowed) == 0 ? CPU_COUNT(&allowed) : 1;
}

void add_options(CLI::App &app, Settings &settings) {
  cli::declare_program(app);
  app.footer("\"rdmd completion bash|zsh|fish\" prints the completion of a shell.");
  app.set_config("--options", "", "Read options from a TOML file")->type_name("FILE");
  app.allow_config_extras(CLI::config_extras_mode::error);
  app.add_option("--listen", settings.listen, "Address to listen on, several times if need be; port 0 takes a free one")
      ->type_name("HOST:PORT|unix:PATH")
      ->allow_extra_args(false)
      ->default_str(default_listen);
  app.add_option("--tls-listen", settings.tls_listen, "Address to listen on for TLS, several times if need be")
      ->type_name("HOST:PORT|unix:PATH")
      ->allow_extra_args(false);
  CLI::Option *certificate = app.add_option("--tls-certificate", settings.tls.certificate,
                                            "Certificate for TLS with its chain, in PEM form; read again at SIGHUP")
                                 ->type_name("FILE");
  app.add_option("--tls-key", settings.tls.key, "Private key of the certificate, in PEM form; read again at SIGHUP")
      ->type_name("FILE")
      ->needs(certificate);
  app.add_option("--admin", settings.admin, "Address for health and metrics; none by default")
      ->type_name("HOST:PORT|unix:PATH");
  app.add_option("--plugin", settings.plugin, "The plug-in; by default librdm.so of this installation")
      ->type_name("PATH");
  app.add_option("--config", settings.config, "Service configuration file")->type_name("FILE")->required();
  app.add_option("--workers", settings.workers, "Worker processes; 0: call the plug-in in the server's own process")
      ->check(CLI::Range(0, 256))
      ->capture_default_str();
  app.add_option("--threads", settings.threads, "Threads for network input and output")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--access-log", settings.access_log, "Access log; - is standard output, none by default")
      ->type_name("FILE");
  app.add_option_function<std::string>(
         "--access-log-format", [&settings](const std::string &name) { settings.access_json = name == "json"; },
         "Format of the access log")
      ->check(CLI::IsMember({"combined", "json"}))
      ->type_name("combined|json")
      ->default_str("combined");
  app.add_option("--error-log", settings.error_log, "Error log; standard error by default")->type_name("FILE");
  CLI::Option *check = app.add_flag("--check", settings.check, "Check the plug-in and the configuration, and exit");
  app.add_option("--user", settings.user, "Check what this user may read and write")->type_name("NAME")->needs(check);
  app.add_flag("--half-close", settings.half_close,
               "Serve clients that have closed their sending side before their turn");
  app.add_flag("--gzip,!--no-gzip", settings.gzip, "Compress answers for clients that accept gzip; the default");
  add_limit_options(app, settings.limits);
  add_proxy_options(app, settings);
}

}  // namespace

std::optional<Settings> parse_options(int argc, char **argv, int &exit_code) {
  Settings settings;
  settings.workers = cores();
  settings.threads = std::max(settings.workers / 2, 1);
  CLI::App app("Serves resource descriptions over HTTP.", "rdmd");
  add_options(app, settings);
  try {
    if (!cli::parse(app, argc, argv, std::cout)) return std::nullopt;
    if (settings.tls.key.empty() && (!settings.tls_listen.empty() || !settings.tls.certificate.empty()))
      throw cli::misuse(app, "TLS needs both --tls-certificate and --tls-key");
  } catch (const cli::Misuse &misuse) {
    std::cerr << "rdmd: " << misuse.what() << '\n';
    exit_code = cli::exit_misuse;
    return std::nullopt;
  }
  if (settings.plugin.empty()) settings.plugin = default_plugin();
  return settings;
}

}  // namespace rdm::rdmd
