// SPDX-License-Identifier: MIT
/// The certificate, the private key and the parameters of TLS connections, by OpenSSL.
///
/// TLS 1.2 and 1.3 with ephemeral keys and authenticated encryption; no renegotiation, compression or early data. ALPN
/// accepts http/1.1 only. Sessions are resumed by tickets, which the clients keep: the server stores none. A new
/// context makes a new ticket key.
#ifndef HOSTS_RDMD_TLS_CONTEXT_H
#define HOSTS_RDMD_TLS_CONTEXT_H

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <openssl/ssl.h>

#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/settings.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// TlsError says which file cannot be used and why: "TLS certificate FILE: REASON" or "TLS key FILE: REASON". It never
/// contains a part of a file.
class TlsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using SslContextPtr = std::unique_ptr<SSL_CTX, Deleter<::SSL_CTX_free>>;
using SslPtr = std::unique_ptr<SSL, Deleter<::SSL_free>>;

class TlsContext {
 public:
  /// Reads the certificate with its chain and the private key, both as PEM. Throws TlsError if one cannot be read or is
  /// malformed, if the key needs a passphrase, or if the key does not belong to the certificate.
  explicit TlsContext(const TlsFiles &files);

  /// warnings returns what is doubtful but not refused: a certificate that is not valid now, a key that every user can
  /// read.
  const std::vector<std::string> &warnings() const { return warnings_; }

  /// session returns the server's side of a new connection on a non-blocking socket, which it does not own. It may
  /// outlive the context. Throws std::bad_alloc. May be called from any thread.
  SslPtr session(int socket) const;

 private:
  SslContextPtr context_;
  std::vector<std::string> warnings_;
};

using TlsContextPtr = std::shared_ptr<const TlsContext>;

/// load_tls returns the context of a server with these sockets, or null if none of them speaks TLS. `warn` gets the
/// context's warnings. Throws TlsError.
TlsContextPtr load_tls(const Settings &settings, const std::vector<ListeningSocket> &sockets,
                       const std::function<void(const std::string &)> &warn);

}  // namespace rdm::rdmd

#endif
