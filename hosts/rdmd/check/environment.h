// SPDX-License-Identifier: MIT
/// Checks the environment of a server: directories, logs and addresses.
///
/// These checks change no file. A file that one creates is removed before it returns.
#ifndef HOSTS_RDMD_CHECK_ENVIRONMENT_H
#define HOSTS_RDMD_CHECK_ENVIRONMENT_H

#include <string>

#include "hosts/rdmd/check/lines.h"

namespace rdm::check {

/// check_programs reports an error unless the directory has an executable minidba.
void check_programs(const Pair &directory, Report &report);

/// check_temporary reports an error unless files can be created in the directory.
void check_temporary(const Pair &directory, Report &report);

/// check_log reports an error unless the server could open the log at its start: the file can be appended to, or can be
/// created.
void check_log(const Pair &log, Report &report);

/// check_listen reports an error unless a server could listen on "HOST:PORT" or "unix:PATH": the name resolves, the
/// address belongs to this machine, and the caller may use the port, or may create the socket. A port or a socket in
/// use is not an error: the server itself may be using it. The sockets are bound for a moment but do not listen.
void check_listen(const std::string &address, Report &report);

/// check_tls reports an error unless certificate and key can be used together, and a warning if the certificate is not
/// valid now or every user can read the key.
void check_tls(const std::string &certificate, const std::string &key, Report &report);

}  // namespace rdm::check

#endif
