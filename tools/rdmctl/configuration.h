// SPDX-License-Identifier: MIT
/// Single values of a service's configuration, without starting the service.
#ifndef RDMCTL_CONFIGURATION_H
#define RDMCTL_CONFIGURATION_H

#include <string>
#include <vector>

#include "hosts/rdmd/check/check.h"

namespace rdm::rdmctl {

/// require_readable throws a Failure if a file, usually the configuration, cannot be read or is not regular.
void require_readable(const std::string &config);

/// is_url returns true if a text is a URL and not a path.
bool is_url(const std::string &text);

/// setting_of returns the value of a name in a configuration, or an empty text. Throws a SystemFailure if the file
/// cannot be read.
std::string setting_of(const std::string &config, const std::string &name);

/// readable_catalogs returns check::configured_catalogs. Throws a Failure if the configuration or its list of catalog
/// services cannot be read.
std::vector<check::ConfiguredCatalog> readable_catalogs(const std::string &config);

/// file_of_service returns the file that the catalog service of a CSID names under `key`, such as
/// "schema-description", or an empty text if it names none. Throws a Failure if there is no such service, or if the
/// list of services cannot be read.
std::string file_of_service(const std::string &config, const std::string &csid, const std::string &key);

/// description_file returns the file that file_of_service returns, or the word itself if it is not a CSID but the path
/// of a file. An empty `config` knows no CSIDs. Throws a Failure if there is no such file or it cannot be
/// read.
std::string description_file(const std::string &word, const std::string &config, const std::string &key);

}  // namespace rdm::rdmctl

#endif
