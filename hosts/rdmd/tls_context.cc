// SPDX-License-Identifier: MIT
#include "hosts/rdmd/tls_context.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <optional>
#include <system_error>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace rdm::rdmd {
namespace {

/// The suites of TLS 1.2. All suites of TLS 1.3 are good.
constexpr char tls12_suites[] = "ECDHE+AESGCM:ECDHE+CHACHA20";
constexpr long ticket_lifetime = 7200;  // seconds

[[noreturn]] void fail(const char *kind, const std::string &path, const std::string &reason) {
  ::ERR_clear_error();
  throw TlsError(std::string("TLS ") + kind + " " + path + ": " + reason);
}

/// first_reason returns OpenSSL's words for the first error of the failed call; later ones say which of its own calls
/// failed with it. Returns `usual` if it has none.
std::string first_reason(const char *usual) {
  const char *const text = ::ERR_reason_error_string(::ERR_peek_error());
  return text != nullptr ? text : usual;
}

/// require_readable throws if a file cannot be read, because OpenSSL does not report errno in one form.
void require_readable(const char *kind, const std::string &path) {
  const HostFileGuard file(host_open_read(path.c_str()));
  char byte = 0;
  if (!file || ::read(file.get(), &byte, 1) < 0) fail(kind, path, std::generic_category().message(errno));
}

bool is_format_error() {
  const unsigned long error = ::ERR_peek_error();
  return ERR_GET_LIB(error) == ERR_LIB_PEM && ERR_GET_REASON(error) == PEM_R_NO_START_LINE;
}

void read_certificate(SSL_CTX *context, const std::string &path) {
  constexpr char kind[] = "certificate";
  require_readable(kind, path);
  if (::SSL_CTX_use_certificate_chain_file(context, path.c_str()) == 1) return;
  fail(kind, path, is_format_error() ? "no certificate in PEM form" : first_reason("cannot be used"));
}

/// note_passphrase is called for an encrypted key. Without it OpenSSL would ask on the terminal.
int note_passphrase(char *, int, int, void *asked) {
  *static_cast<bool *>(asked) = true;
  return -1;
}

void read_key(SSL_CTX *context, const std::string &path) {
  constexpr char kind[] = "key";
  require_readable(kind, path);
  bool asked = false;
  ::SSL_CTX_set_default_passwd_cb(context, note_passphrase);
  ::SSL_CTX_set_default_passwd_cb_userdata(context, &asked);
  const bool is_read = ::SSL_CTX_use_PrivateKey_file(context, path.c_str(), SSL_FILETYPE_PEM) == 1;
  ::SSL_CTX_set_default_passwd_cb_userdata(context, nullptr);
  if (asked) fail(kind, path, "encrypted with a passphrase; store it without one, readable by the server's user only");
  if (!is_read) {
    const bool differs = ERR_GET_LIB(::ERR_peek_error()) == ERR_LIB_X509;
    fail(kind, path, differs ? "does not belong to the certificate" : "no private key in PEM form");
  }
  if (::SSL_CTX_check_private_key(context) != 1) fail(kind, path, "does not belong to the certificate");
}

std::string date_of(const ASN1_TIME *time) {
  struct tm date {};
  char text[32] = "";
  if (::ASN1_TIME_to_tm(time, &date) == 1) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &date);
  return text;
}

std::optional<std::string> validity_problem(const X509 *certificate) {
  const ASN1_TIME *const begin = ::X509_get0_notBefore(certificate), *const end = ::X509_get0_notAfter(certificate);
  if (::X509_cmp_current_time(end) < 0) return "expired on " + date_of(end);
  if (::X509_cmp_current_time(begin) > 0) return "not valid before " + date_of(begin);
  return std::nullopt;
}

bool is_public(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0;
}

std::vector<std::string> warnings_of(const SSL_CTX *context, const TlsFiles &files) {
  std::vector<std::string> warnings;
  if (const auto problem = validity_problem(::SSL_CTX_get0_certificate(context)))
    warnings.push_back("TLS certificate " + files.certificate + ": " + *problem);
  if (is_public(files.key)) warnings.push_back("TLS key " + files.key + ": every user can read it");
  return warnings;
}

/// choose_protocol accepts http/1.1, and refuses clients that offer only others.
int choose_protocol(SSL *, const unsigned char **chosen, unsigned char *size, const unsigned char *offered,
                    unsigned int length, void *) {
  static constexpr unsigned char accepted[] = "\x08http/1.1";
  unsigned char *selected = nullptr;
  if (::SSL_select_next_proto(&selected, size, accepted, sizeof accepted - 1, offered, length) !=
      OPENSSL_NPN_NEGOTIATED)
    return SSL_TLSEXT_ERR_ALERT_FATAL;
  *chosen = selected;
  return SSL_TLSEXT_ERR_OK;
}

SslContextPtr new_context() {
  SslContextPtr context(::SSL_CTX_new(::TLS_server_method()));
  if (!context) throw std::bad_alloc();
  SSL_CTX *const raw = context.get();
  ::SSL_CTX_set_min_proto_version(raw, TLS1_2_VERSION);
  ::SSL_CTX_set_cipher_list(raw, tls12_suites);
  ::SSL_CTX_set_options(raw, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_IGNORE_UNEXPECTED_EOF |
                                 SSL_OP_CIPHER_SERVER_PREFERENCE | SSL_OP_PRIORITIZE_CHACHA | SSL_OP_ENABLE_KTLS);
  ::SSL_CTX_set_mode(raw,
                     SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  ::SSL_CTX_set_session_cache_mode(raw, SSL_SESS_CACHE_OFF);
  ::SSL_CTX_set_timeout(raw, ticket_lifetime);
  ::SSL_CTX_set_num_tickets(raw, 1);
  ::SSL_CTX_set_alpn_select_cb(raw, choose_protocol, nullptr);
  return context;
}

}  // namespace

TlsContext::TlsContext(const TlsFiles &files) : context_(new_context()) {
  read_certificate(context_.get(), files.certificate);
  read_key(context_.get(), files.key);
  warnings_ = warnings_of(context_.get(), files);
}

SslPtr TlsContext::session(int socket) const {
  SslPtr session(::SSL_new(context_.get()));
  if (!session || ::SSL_set_fd(session.get(), socket) != 1) throw std::bad_alloc();
  ::SSL_set_accept_state(session.get());
  return session;
}

TlsContextPtr load_tls(const Settings &settings, const std::vector<ListeningSocket> &sockets,
                       const std::function<void(const std::string &)> &warn) {
  if (std::none_of(sockets.begin(), sockets.end(), [](const ListeningSocket &one) { return one.tls; })) return nullptr;
  if (settings.tls.certificate.empty())
    throw TlsError("an inherited socket speaks TLS: name its certificate with --tls-certificate and --tls-key");
  auto context = std::make_shared<const TlsContext>(settings.tls);
  for (const std::string &warning : context->warnings()) warn(warning);
  return context;
}

}  // namespace rdm::rdmd
