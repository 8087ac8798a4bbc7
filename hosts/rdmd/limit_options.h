// SPDX-License-Identifier: MIT
/// The options that limit what clients may use.
#ifndef HOSTS_RDMD_LIMIT_OPTIONS_H
#define HOSTS_RDMD_LIMIT_OPTIONS_H

#include <CLI/CLI.hpp>

#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// add_limit_options declares the limits in time, number and size; parsing sets `limits`.
void add_limit_options(CLI::App &app, Limits &limits);

}  // namespace rdm::rdmd

#endif
