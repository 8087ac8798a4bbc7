// SPDX-License-Identifier: MIT
/// Certificates and keys of a server.

#include "hosts/rdmd/tls_context.h"

#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/tls_support.h"
#include "support/files.h"

using namespace rdm;

namespace {

using rdmd::TlsContext;
using Texts = std::vector<std::string>;

class TlsFiles : public ::testing::Test {
 protected:
  TlsFiles() { support::write_certificate(certificate_, key_); }

  /// failure reads the files and returns the message of the error, or "".
  static std::string failure(const std::string &certificate, const std::string &key) {
    try {
      const TlsContext context({certificate, key});
      return "";
    } catch (const rdmd::TlsError &error) {
      return error.what();
    }
  }

  const support::TemporaryDirectory directory_;
  const std::string certificate_ = directory_.path("cert.pem"), key_ = directory_.path("key.pem");
};

TEST_F(TlsFiles, ThatBelongTogetherAreAccepted) {
  const TlsContext context({certificate_, key_});
  EXPECT_EQ(context.warnings(), Texts());
  EXPECT_NE(context.session(0), nullptr);
}

TEST_F(TlsFiles, OneThatCannotBeUsedIsNamedWithTheReason) {
  const std::string other = directory_.path("other.pem"), other_key = directory_.path("other-key.pem"),
                    locked = directory_.path("locked.pem"), text = directory_.write("text", "secret text\n"),
                    none = directory_.path("none"), cut = directory_.path("cut.pem");
  support::write_certificate(other, other_key);
  support::write_certificate(directory_.path("unused"), locked, {.passphrase = "secret"});
  directory_.write("cut.pem", support::read_file(certificate_).substr(0, 200));
  const std::string cert = "TLS certificate ", key = "TLS key ";
  EXPECT_EQ(failure(none, key_), cert + none + ": No such file or directory");
  EXPECT_EQ(failure(certificate_, none), key + none + ": No such file or directory");
  EXPECT_EQ(failure(text, key_), cert + text + ": no certificate in PEM form");
  EXPECT_EQ(failure(key_, key_), cert + key_ + ": no certificate in PEM form");
  EXPECT_EQ(failure(cut, key_), cert + cut + ": bad end line");
  EXPECT_EQ(failure(certificate_, text), key + text + ": no private key in PEM form");
  EXPECT_EQ(failure(certificate_, certificate_), key + certificate_ + ": no private key in PEM form");
  EXPECT_EQ(failure(certificate_, other_key), key + other_key + ": does not belong to the certificate");
  EXPECT_EQ(failure(certificate_, locked), key + locked +
                                               ": encrypted with a passphrase; store it without one, "
                                               "readable by the server's user only");
  EXPECT_EQ(failure(directory_.path(), key_), cert + directory_.path() + ": Is a directory");
}

TEST_F(TlsFiles, ACertificateThatIsNotValidNowIsAWarning) {
  const std::string warning = "TLS certificate " + certificate_ + ": ";
  support::write_certificate(certificate_, key_, {.begin = -7200, .end = -3600});
  const Texts expired = TlsContext({certificate_, key_}).warnings();
  ASSERT_EQ(expired.size(), 1U);
  EXPECT_EQ(expired[0].substr(0, warning.size() + 12), warning + "expired on 2");
  support::write_certificate(certificate_, key_, {.begin = 3600, .end = 7200});
  const Texts early = TlsContext({certificate_, key_}).warnings();
  ASSERT_EQ(early.size(), 1U);
  EXPECT_EQ(early[0].substr(0, warning.size() + 18), warning + "not valid before 2");
}

TEST_F(TlsFiles, AKeyThatEveryUserCanReadIsAWarning) {
  ::chmod(key_.c_str(), 0644);
  EXPECT_EQ(TlsContext({certificate_, key_}).warnings(), Texts{"TLS key " + key_ + ": every user can read it"});
}

}  // namespace
