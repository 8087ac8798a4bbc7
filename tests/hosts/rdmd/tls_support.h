// SPDX-License-Identifier: MIT
/// Certificates that are made for a test, and clients that speak TLS.
#ifndef TESTS_HOSTS_RDMD_TLS_SUPPORT_H
#define TESTS_HOSTS_RDMD_TLS_SUPPORT_H

#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "hosts/rdmd/rdmd_process.h"
#include "qxapi/guard.h"

namespace rdm::support {

/// CertificateForm says how a certificate is made. Times are in seconds from now.
struct CertificateForm {
  std::string name = "localhost";
  long begin = -3600, end = 3600;
  std::string passphrase = {};  // of the key; empty: none
};

/// write_certificate makes a key and a self-signed certificate and writes them as PEM files; the key with mode 0600.
void write_certificate(const std::string &certificate, const std::string &key, const CertificateForm &form = {});

/// TlsClient is a connection by TLS. It accepts any certificate.
class TlsClient : public HttpClient {
 public:
  /// `version` is the only version that the client speaks, such as TLS1_2_VERSION; 0: any. `protocol` is offered by
  /// ALPN unless it is empty. `resumed` is a session to resume. The bytes `before` are sent
  /// before the handshake. If the handshake fails, connected returns false.
  explicit TlsClient(int port, int version = 0, const std::string &protocol = "", SSL_SESSION *resumed = nullptr,
                     int receive_buffer = 0, const std::string &before = "");
  bool connected() const { return connected_; }
  std::string protocol() const;
  std::string version() const { return ::SSL_get_version(tls_.get()); }
  /// name returns the common name of the server's certificate.
  std::string name() const;
  bool is_resumed() const { return ::SSL_session_reused(tls_.get()) == 1; }
  SSL_SESSION *session() const { return ::SSL_get0_session(tls_.get()); }
  /// ended_cleanly returns true if the server has ended the session with close_notify. Call it at the end of input.
  bool ended_cleanly() const { return (::SSL_get_shutdown(tls_.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }
  /// close_session sends close_notify.
  void close_session() { ::SSL_shutdown(tls_.get()); }

 protected:
  ssize_t put(const char *bytes, std::size_t count) override;
  ssize_t get(char *block, std::size_t size) override;
  bool has_input() const override { return ::SSL_pending(tls_.get()) > 0; }

 private:
  std::unique_ptr<SSL_CTX, Deleter<::SSL_CTX_free>> context_;
  std::unique_ptr<SSL, Deleter<::SSL_free>> tls_;
  bool connected_ = false;
};

}  // namespace rdm::support

#endif
