// SPDX-License-Identifier: MIT
#include "hosts/rdmd/tls_support.h"

#include <sys/stat.h>

#include <csignal>
#include <cstdio>

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace rdm::support {
namespace {

using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<::EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, Deleter<::X509_free>>;
using FilePtr = std::unique_ptr<std::FILE, Deleter<std::fclose>>;

CertificatePtr make_certificate(EVP_PKEY *key, const CertificateForm &form) {
  static long serial = 0;
  CertificatePtr certificate(::X509_new());
  ::X509_set_version(certificate.get(), 2);
  ::ASN1_INTEGER_set(::X509_get_serialNumber(certificate.get()), ++serial);
  ::X509_gmtime_adj(::X509_getm_notBefore(certificate.get()), form.begin);
  ::X509_gmtime_adj(::X509_getm_notAfter(certificate.get()), form.end);
  ::X509_set_pubkey(certificate.get(), key);
  X509_NAME *const name = ::X509_get_subject_name(certificate.get());
  ::X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>(form.name.c_str()), -1,
                               -1, 0);
  ::X509_set_issuer_name(certificate.get(), name);
  EXPECT_GT(::X509_sign(certificate.get(), key, ::EVP_sha256()), 0);
  return certificate;
}

}  // namespace

void write_certificate(const std::string &certificate, const std::string &key, const CertificateForm &form) {
  const KeyPtr pair(::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  const FilePtr key_file(std::fopen(key.c_str(), "w")), certificate_file(std::fopen(certificate.c_str(), "w"));
  ::chmod(key.c_str(), 0600);
  const EVP_CIPHER *const cipher = form.passphrase.empty() ? nullptr : ::EVP_aes_128_cbc();
  EXPECT_EQ(::PEM_write_PrivateKey(key_file.get(), pair.get(), cipher,
                                   reinterpret_cast<const unsigned char *>(form.passphrase.data()),
                                   static_cast<int>(form.passphrase.size()), nullptr, nullptr),
            1);
  EXPECT_EQ(::PEM_write_X509(certificate_file.get(), make_certificate(pair.get(), form).get()), 1);
}

TlsClient::TlsClient(int port, int version, const std::string &protocol, SSL_SESSION *resumed, int receive_buffer,
                     const std::string &before)
    : HttpClient(port, false, receive_buffer), context_(::SSL_CTX_new(::TLS_client_method())) {
  std::signal(SIGPIPE, SIG_IGN);
  // Old versions can be offered at this level only; the server must refuse them nevertheless.
  if (version != 0) ::SSL_CTX_set_security_level(context_.get(), 0);
  ::SSL_CTX_set_min_proto_version(context_.get(), version);
  ::SSL_CTX_set_max_proto_version(context_.get(), version);
  const std::string offered = static_cast<char>(protocol.size()) + protocol;
  if (!protocol.empty())
    ::SSL_CTX_set_alpn_protos(context_.get(), reinterpret_cast<const unsigned char *>(offered.data()),
                              static_cast<unsigned>(offered.size()));
  tls_.reset(::SSL_new(context_.get()));
  ::SSL_set_fd(tls_.get(), descriptor());
  if (resumed != nullptr) ::SSL_set_session(tls_.get(), resumed);
  EXPECT_EQ(HttpClient::put(before.data(), before.size()), static_cast<ssize_t>(before.size()));
  connected_ = ::SSL_connect(tls_.get()) == 1;
  ::ERR_clear_error();
}

std::string TlsClient::protocol() const {
  const unsigned char *name = nullptr;
  unsigned length = 0;
  ::SSL_get0_alpn_selected(tls_.get(), &name, &length);
  return std::string(name, name + length);
}

std::string TlsClient::name() const {
  const CertificatePtr certificate(::SSL_get1_peer_certificate(tls_.get()));
  char text[256] = "";
  if (certificate)
    ::X509_NAME_get_text_by_NID(::X509_get_subject_name(certificate.get()), NID_commonName, text, sizeof text);
  return text;
}

ssize_t TlsClient::put(const char *bytes, std::size_t count) {
  return ::SSL_write(tls_.get(), bytes, static_cast<int>(count));
}

ssize_t TlsClient::get(char *block, std::size_t size) {
  const int got = ::SSL_read(tls_.get(), block, static_cast<int>(size));
  ::ERR_clear_error();
  return got;
}

}  // namespace rdm::support
