// SPDX-License-Identifier: MIT
#include "hosts/rdmd/limit_options.h"

#include <chrono>
#include <cmath>
#include <string>

#include "hosts/rdmd/front/proxies.h"

namespace rdm::rdmd {
namespace {

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
    {"--queue-time", &Limits::queue, "Seconds that a request waits for a worker at most"},
    {"--service-timeout", &Limits::service, "Seconds that a worker may take for a request before it is killed"},
    {"--shutdown-timeout", &Limits::shutdown, "Seconds for answers under way at shutdown"},
};

/// refuse_nan returns an error text for "nan", which CLI::Range accepts, and an empty string for anything else.
std::string refuse_nan(const std::string &text) {
  double value = 0;
  return CLI::detail::lexical_cast(text, value) && std::isnan(value) ? "Value " + text + " is not a number" : "";
}

void add_time_option(CLI::App &app, const TimeOption &option, Limits &limits) {
  Duration &limit = limits.*option.limit;
  const auto set = [&limit](const double &seconds) { limit = Duration(std::llround(seconds * 1000)); };
  app.add_option_function<double>(option.name, set, option.description)
      ->check(CLI::Range(0.001, 86400.0))
      ->check(CLI::Validator(refuse_nan, ""))
      ->type_name("SECONDS")
      ->default_str(std::to_string(limit.count() / 1000));
}

constexpr std::size_t most_spill = std::size_t{1} << 50;

/// An option that is a number.
struct NumberOption {
  const char *name;
  std::size_t Limits::*limit;
  std::size_t least, most;
  const char *description;
};

constexpr NumberOption count_options[] = {
    {"--max-connections", &Limits::connections, 1, 65536, "Connections served at once"},
    {"--queue-length", &Limits::queue_length, 1, 1000000, "Requests that wait for a worker at once"},
    {"--max-head-fields", &Limits::head_fields, 1, 1000, "Fields of a request head"},
};

/// Options that take a suffix: K, M, G.
constexpr NumberOption size_options[] = {
    {"--max-head-bytes", &Limits::head_bytes, 256, 65536, "Bytes of a request head"},
    {"--max-target-bytes", &Limits::target_bytes, 64, 65536, "Bytes of a request target"},
    {"--spill-limit", &Limits::spill, 0, most_spill, "Bytes of answers that wait in temporary files; 0: no limit"},
    {"--min-send-rate", &Limits::send_rate, 0, std::size_t{1} << 30,
     "Bytes of its answer that a client must take in a second on average; 0: any"},
};

/// replace_size replaces a number with a suffix, such as "16K", by its value. Returns an error text or an empty string.
std::string replace_size(std::string &text) {
  const std::string given = text;
  try {
    return CLI::AsSizeValue(false)(text);
  } catch (const CLI::ValidationError &) {
    return '"' + given + "\" is not a number of bytes such as 4096, 64K or 1M";
  }
}

CLI::Option *add_number_option(CLI::App &app, const NumberOption &option, Limits &limits) {
  return app.add_option(option.name, limits.*option.limit, option.description)
      ->check(CLI::Range(option.least, option.most))
      ->capture_default_str();
}

}  // namespace

/// add_address_options declares the limits for each address.
void add_address_options(CLI::App &app, Limits &limits) {
  app.add_option("--max-connections-per-address", limits.connections_per_address,
                 "Connections of one address served at once; 0: no limit")
      ->check(CLI::Range(0, 65536))
      ->type_name("N")
      ->default_str("half of --max-connections");
  app.add_option("--spill-limit-per-address", limits.spill_per_address, "The same of one address; 0: no limit")
      ->check(CLI::Range(std::size_t{0}, most_spill))
      ->transform(CLI::Validator(replace_size, ""))
      ->type_name("BYTES")
      ->default_str("half of --spill-limit");
  app.add_option("--rate-per-address", limits.rate_per_address,
                 "New connections of one address per second; 0: no limit")
      ->check(CLI::Range(0.0, 1'000'000.0))
      ->check(CLI::Validator(refuse_nan, ""))
      ->type_name("N")
      ->capture_default_str();
}

void add_limit_options(CLI::App &app, Limits &limits) {
  for (const NumberOption &option : count_options) add_number_option(app, option, limits)->type_name("N");
  add_address_options(app, limits);
  for (const NumberOption &option : size_options)
    add_number_option(app, option, limits)->transform(CLI::Validator(replace_size, ""))->type_name("BYTES");
  for (const TimeOption &option : time_options) add_time_option(app, option, limits);
}

void add_proxy_options(CLI::App &app, Settings &settings) {
  const auto check = [](const std::string &text) {
    return Proxies::is_valid(text) ? "" : '"' + text + R"(" is not an address, ADDRESS/BITS or "unix")";
  };
  CLI::Option *trusted =
      app.add_option("--trusted-proxy", settings.trusted_proxies,
                     "Proxy that names the client of each request by X-Forwarded-For; several times if need be")
          ->check(CLI::Validator(check, ""))
          ->type_name("ADDRESS[/BITS]|unix")
          ->allow_extra_args(false);
  app.add_flag("--proxy-protocol", settings.proxy_protocol, "Trusted proxies send a PROXY header on each connection")
      ->needs(trusted);
}

}  // namespace rdm::rdmd
