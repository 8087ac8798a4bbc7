// SPDX-License-Identifier: MIT
/// The options that limit what clients may use, and that say who counts as the client.
#ifndef HOSTS_RDMD_LIMIT_OPTIONS_H
#define HOSTS_RDMD_LIMIT_OPTIONS_H

#include <CLI/CLI.hpp>

#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// add_limit_options declares the limits in time, number and size; parsing sets `limits`.
void add_limit_options(CLI::App &app, Limits &limits);

/// add_proxy_options declares the options that name the proxies in front of the server.
void add_proxy_options(CLI::App &app, Settings &settings);

}  // namespace rdm::rdmd

#endif
