// SPDX-License-Identifier: MIT
#include "hosts/rdmd/options.h"

#include <array>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <string>

#include "cli/command_line.h"

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

/// An option in seconds whose setting is in milliseconds.
struct TimeOption {
  const char *name;
  Duration Limits::*limit;
  const char *description;
};

constexpr TimeOption time_options[] = {
    {"--header-timeout", &Limits::header, "Seconds for a whole request head"},
    {"--body-timeout", &Limits::body, "Seconds for a whole request body"},
    {"--idle-timeout", &Limits::idle, "Seconds between two requests of a connection"},
    {"--write-timeout", &Limits::write, "Seconds without a client taking any of its answer"},
    {"--linger-timeout", &Limits::linger, "Seconds for what a client still sends after its last answer"},
    {"--shutdown-timeout", &Limits::shutdown, "Seconds for answers under way at shutdown"},
};

void add_time_option(CLI::App &app, const TimeOption &option, Limits &limits) {
  Duration &limit = limits.*option.limit;
  const auto set = [&limit](const double &seconds) { limit = Duration(std::llround(seconds * 1000)); };
  app.add_option_function<double>(option.name, set, option.description)
      ->check(CLI::Range(0.001, 86400.0))
      ->type_name("SECONDS")
      ->default_str(std::to_string(limit.count() / 1000));
}

void add_options(CLI::App &app, Settings &settings) {
  cli::declare_program(app);
  app.set_config("--options", "", "Read options from a TOML file")->type_name("FILE");
  app.allow_config_extras(CLI::config_extras_mode::error);
  app.add_option("--listen", settings.listen, "Address to listen on, several times if need be; port 0 takes a free one")
      ->type_name("HOST:PORT|unix:PATH")
      ->allow_extra_args(false)
      ->default_str(default_listen);
  app.add_option("--plugin", settings.plugin, "The plug-in; by default librdm.so of this installation")
      ->type_name("PATH");
  app.add_option("--config", settings.config, "Service configuration file")->type_name("FILE")->required();
  app.add_option("--workers", settings.workers, "Worker processes; only 1 is supported")->capture_default_str();
  app.add_option("--threads", settings.threads, "Threads for network input and output")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--access-log", settings.access_log, "Access log; - is standard output, none by default")
      ->type_name("FILE");
  app.add_option("--error-log", settings.error_log, "Error log; standard error by default")->type_name("FILE");
  CLI::Option *check = app.add_flag("--check", settings.check, "Check the plug-in and the configuration, and exit");
  app.add_option("--user", settings.user, "Check what this user may read and write")->type_name("NAME")->needs(check);
  app.add_option("--max-connections", settings.limits.connections, "Connections served at once")
      ->check(CLI::Range(1, 65536))
      ->capture_default_str();
  for (const TimeOption &option : time_options) add_time_option(app, option, settings.limits);
}

}  // namespace

std::optional<Settings> parse_options(int argc, char **argv, int &exit_code) {
  Settings settings;
  CLI::App app("Serves resource descriptions over HTTP.", "rdmd");
  add_options(app, settings);
  try {
    if (!cli::parse(app, argc, argv, std::cout)) return std::nullopt;
    if (settings.workers != 1)
      throw cli::misuse(app, "--workers: only 1 is supported: start more servers behind a load balancer instead");
  } catch (const cli::Misuse &misuse) {
    std::cerr << "rdmd: " << misuse.what() << '\n';
    exit_code = cli::exit_misuse;
    return std::nullopt;
  }
  if (settings.plugin.empty()) settings.plugin = default_plugin();
  return settings;
}

}  // namespace rdm::rdmd
