// SPDX-License-Identifier: MIT
/// HTTP as the client uses it: one POST, whose answer is passed on as it arrives. Only http.cc includes libcurl.
#ifndef TOOLS_RDM_HTTP_H
#define TOOLS_RDM_HTTP_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace rdm::client {

/// Transfer says how an exchange ended.
enum class Transfer {
  whole,     // all bytes that were announced have arrived
  cut,       // the connection ended, or was silent for too long, within the answer
  failed,    // no answer; another attempt may get one
  hopeless,  // no answer, and another attempt will not get one: a certificate, say, is not trusted
  unframed,  // the answer does not announce where it ends, or announces it in two ways
};

/// HttpReply is what is known of an answer besides its body.
struct HttpReply {
  Transfer transfer = Transfer::failed;
  int status = 0;            // 0 without an answer
  std::string content_type;  // without parameters, in lower case
  std::string encoding;      // Content-Encoding; empty without one
  std::string location;      // where a redirection leads; empty without one
  int64_t received = 0;      // bytes of the body
  std::string error;         // the reason unless the transfer is whole
  /// retry_after is the server's wish in seconds, date its clock in seconds since 1970: std::nullopt if not told.
  std::optional<int64_t> retry_after;
  std::optional<time_t> date;
};

struct HttpSettings {
  std::string ca_file;  // of certificates to trust; empty: the system's
  double timeout = 60;  // seconds to connect, and seconds without a byte
  std::string agent;    // User-Agent
};

/// HttpClient keeps its connection between exchanges. It uses the proxies of the environment and the passwords of
/// .netrc, and follows no redirection. One thread at a time may use it.
class HttpClient {
 public:
  explicit HttpClient(const HttpSettings &settings);
  HttpClient(const HttpClient &) = delete;
  HttpClient &operator=(const HttpClient &) = delete;
  ~HttpClient();

  /// Sink receives the bytes of the body in order. An exception ends the exchange and is passed on.
  using Sink = std::function<void(std::string_view bytes)>;
  /// post sends an RDM message to an http or https URL.
  HttpReply post(const std::string &url, const std::string &message, const Sink &sink);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace rdm::client

#endif
