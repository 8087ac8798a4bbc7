// SPDX-License-Identifier: MIT
/// The settings made by the command line.
#ifndef HOSTS_RDMD_SETTINGS_H
#define HOSTS_RDMD_SETTINGS_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace rdm::rdmd {

using Duration = std::chrono::milliseconds;

/// Limits on the time and the resources that a client may use.
struct Limits {
  Duration header{10'000};          // from the first byte of a request, or from the connection, to the end of its head
  Duration body{30'000};            // from the end of the head to the end of the body
  Duration idle{15'000};            // from the end of an answer to the first byte of the next request
  Duration write{30'000};           // without an acknowledgement of any byte of an answer
  Duration linger{2'000};           // for reading input after the last answer
  Duration queue{30'000};           // that a request waits for a worker at most
  Duration service{60'000};         // that a worker may take for a request
  Duration shutdown{30'000};        // for the answers under way at shutdown
  std::size_t queue_length = 1024;  // requests that wait for a worker at once
  std::size_t connections = 1024;   // at once
  std::optional<std::size_t> connections_per_address;  // 0: no limit; none: half of `connections`, and at least 64
  double rate_per_address = 0;                         // new connections per second; 0: no limit
  std::size_t head_bytes = 16384;                      // of a request head
  std::size_t head_fields = 200;                       // of a request head; repeated fields count each time
  std::size_t target_bytes = 8190;                     // of a request target
  std::size_t spill = std::size_t{4} << 30;            // bytes of answers in temporary files; 0: no limit
  std::optional<std::size_t> spill_per_address;        // 0: no limit; none: half of `spill`
  std::size_t send_rate = 256;  // bytes per second that a client must acknowledge on average; 0: any
};

/// The address of a server whose options name none.
inline constexpr const char *default_listen = "127.0.0.1:8380";

/// The files of the certificate, with its chain, and of the private key; both in PEM form.
struct TlsFiles {
  std::string certificate;
  std::string key;
};

struct Settings {
  std::vector<std::string> listen;  // "HOST:PORT" or "unix:PATH"; empty: none was given
  std::vector<std::string> tls_listen;
  TlsFiles tls;
  std::string admin;  // the administration endpoint, likewise; empty: none
  std::string plugin;
  std::string config;
  std::string access_log;    // empty: none; "-": standard output
  bool access_json = false;  // the format of the access log
  std::string error_log;     // empty: standard error
  int workers = 0;           // processes that call the plug-in; 0: this process calls it
  int threads = 2;           // for network input and output
  bool check = false;
  std::string user;                          // whose rights --check uses; empty: the caller
  std::vector<std::string> trusted_proxies;  // "ADDRESS[/BITS]" or "unix"
  bool half_close = false;                   // serve clients that have closed their sending side before their turn
  bool gzip = true;                          // compress answers for clients that prefer it
  bool proxy_protocol = false;               // every connection begins with a header of its proxy
  Limits limits;
};

/// The longest body that is read before the plug-in is called. Longer ones are not read, because the plug-in refuses
/// them by their declared length.
inline constexpr std::size_t body_limit = 32768;

/// A client may be behind the minimum send rate by this multiple of the write timeout. The write deadline tolerates
/// pauses of about the same length.
inline constexpr int send_rate_slack = 5;

}  // namespace rdm::rdmd

#endif
