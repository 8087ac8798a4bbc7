// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/sender.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/tls_support.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/pieces.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using hosts::Piece;
using rdmd::Sender;
using support::bytes;
using support::records;

/// SocketPair is a connection within the process; our end is non-blocking.
class SocketPair {
 public:
  SocketPair() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    ours_ = HostFileGuard(ends[0]);
    theirs_ = HostFileGuard(ends[1]);
    ::fcntl(ours_.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(theirs_.get(), F_SETFL, O_NONBLOCK);
    transport_.emplace(ours_.get());
  }
  int ours() const { return ours_.get(); }
  int theirs() const { return theirs_.get(); }
  rdmd::Transport &transport() { return *transport_; }
  void hang_up() { theirs_ = HostFileGuard(); }
  /// receive_all returns everything that has arrived.
  std::string receive_all() {
    std::string all;
    for (std::string part; !(part = receive(100'000)).empty();) all += part;
    return all;
  }
  std::string receive(std::size_t most) {
    std::string text(most, '\0');
    const ssize_t got = ::recv(theirs_.get(), text.data(), most, MSG_DONTWAIT);
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return text;
  }

 private:
  HostFileGuard ours_, theirs_;
  std::optional<rdmd::Transport> transport_;
};

Piece stretch(const std::string &path, std::int64_t offset, std::int64_t length) {
  return {"", std::make_shared<const HostFileGuard>(host_open_read(path.c_str())), offset, length};
}

/// answer returns the sender of a head and pieces.
template <typename... Pieces>
Sender answer(const std::string &head, Pieces... pieces) {
  std::vector<Piece> body;
  (body.push_back(std::move(pieces)), ...);
  return {head, std::move(body)};
}

TEST(AnswerSender, SendsHeadBytesAndStretchesInOrder) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("file", "0123456789");
  SocketPair pair;
  Sender sender = answer("HEAD ", bytes("one "), stretch(path, 2, 5), bytes(" two"));
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::done);
  EXPECT_EQ(pair.receive(100), "HEAD one 23456 two");
  EXPECT_EQ(sender.sent(), 18);
  EXPECT_EQ(pair.transport().sent(), 18);
  EXPECT_EQ(sender.body_sent(), 13);
}

TEST(AnswerSender, AHeadAloneHasNoBody) {
  SocketPair pair;
  Sender sender("HEAD", {});
  EXPECT_EQ(sender.body_sent(), 0);
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::done);
  EXPECT_EQ(sender.sent(), 4);
  EXPECT_EQ(sender.body_sent(), 0);
}

TEST(AnswerSender, ContinuesAfterAFullSocket) {
  const support::TemporaryDirectory directory;
  std::string text;
  for (int i = 0; text.size() < 3'000'000; ++i) text += std::to_string(i) + ' ';
  const std::string path = directory.write("file", text);
  SocketPair pair;
  Sender sender = answer("HEAD", bytes(text), stretch(path, 0, static_cast<std::int64_t>(text.size())));
  std::string received;
  bool was_blocked = false;
  for (;;) {
    const Sender::State state = sender.send(pair.transport());
    was_blocked = was_blocked || state == Sender::State::blocked;
    received += pair.receive_all();
    if (state == Sender::State::done) break;
    ASSERT_NE(state, Sender::State::failed);
  }
  EXPECT_TRUE(was_blocked);
  EXPECT_EQ(received, "HEAD" + text + text);
}

TEST(AnswerSender, ReadsAndSendsIfSendfileFails) {
  const support::TemporaryDirectory directory;
  const std::string text(100'000, 'x');
  SocketPair pair;
  ::fcntl(pair.ours(), F_SETFL, O_NONBLOCK | O_APPEND);  // sendfile refuses such a descriptor
  Sender sender =
      answer("H", stretch(directory.write("file", text + "not this"), 0, static_cast<std::int64_t>(text.size())),
             stretch(directory.write("short", "short"), 0, 10));
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::failed);
  EXPECT_EQ(pair.receive(200'000), "H" + text + "short");
}

TEST(AnswerSender, FailsWhenAFileBecameShorterThanItsStretch) {
  const support::TemporaryDirectory directory;
  SocketPair pair;
  Sender sender = answer("H", stretch(directory.write("file", "short"), 0, 10));
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::failed);
  EXPECT_EQ(pair.receive(100), "Hshort");
}

TEST(AnswerSender, FailsQuietlyWhenTheClientHasGone) {
  SocketPair pair;
  pair.hang_up();
  Sender sender("HEAD", {});
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::failed);
}

/// A file of three million bytes, and places in it.
class SliceSender : public ::testing::Test {
 protected:
  SliceSender() {
    for (int i = 0; text_.size() < 3'000'000; ++i) text_ += std::to_string(i) + ' ';
    files_.emplace(directory_.path("records"), text_, support::scattered(9000, text_.size()));
  }
  host_slice slice() const { return files_->all(); }
  std::string right() const { return support::bytes_of(slice()); }

  /// send_all sends an answer to a client that reads, and returns what that got. `between` is called after each step.
  template <typename Pair>
  static std::string send_all(
      Sender &sender, Pair &pair, Sender::State &end, const std::function<void()> &between = [] {}) {
    std::string received;
    do {
      end = sender.send(pair.transport());
      received += pair.receive_all();
      between();
    } while (end == Sender::State::more || end == Sender::State::blocked);
    return received;
  }

  const support::TemporaryDirectory directory_;
  std::string text_;
  std::optional<support::SliceFiles> files_;
};

TEST_F(SliceSender, SendsRecordsBetweenBytes) {
  SocketPair pair;
  Sender sender = answer("HEAD ", bytes("one "), records(slice()), bytes(" two"), records(files_->slice(5, 1)));
  Sender::State end{};
  EXPECT_EQ(send_all(sender, pair, end), "HEAD one " + right() + " two" + support::bytes_of(files_->slice(5, 1)));
  EXPECT_EQ(end, Sender::State::done);
  EXPECT_EQ(sender.sent(), pair.transport().sent());
}

TEST_F(SliceSender, ReadsAndSendsRecordsOfAFileWithoutAMapping) {
  // Larger than the addresses of a process.
  const HostFileGuard file(::memfd_create("huge", MFD_CLOEXEC));
  ASSERT_EQ(::ftruncate(file.get(), off_t{1} << 50), 0);
  ASSERT_EQ(::pwrite(file.get(), text_.data(), text_.size(), 0), static_cast<ssize_t>(text_.size()));
  host_slice huge = slice();
  huge.records = file.get();
  const auto shared = hosts::SharedFile::open(file.get());
  shared->expect(shared->size());
  EXPECT_EQ(shared->mapping(), nullptr);
  SocketPair pair;
  Sender sender = answer("HEAD", records(huge));
  Sender::State end{};
  EXPECT_EQ(send_all(sender, pair, end), "HEAD" + right());
  EXPECT_EQ(end, Sender::State::done);
}

TEST_F(SliceSender, OfAFileThatIsCutStopsWithoutASignal) {
  SocketPair pair;
  Sender sender = answer("HEAD", records(slice()));
  const std::size_t whole = 4 + right().size();
  Sender::State end{};
  const std::string received =
      send_all(sender, pair, end, [&] { EXPECT_EQ(::truncate(files_->path().c_str(), 100'000), 0); });
  EXPECT_EQ(end, Sender::State::changed);
  EXPECT_LT(received.size(), whole);
  EXPECT_LT(sender.sent(), static_cast<std::int64_t>(whole));
}

TEST_F(SliceSender, OfAFileThatWasCutBeforeStopsWithoutASignal) {
  SocketPair pair;
  Sender sender = answer("HEAD", records(slice()));
  ASSERT_EQ(::truncate(files_->path().c_str(), 0), 0);
  Sender::State end{};
  EXPECT_EQ(send_all(sender, pair, end), "HEAD");
  EXPECT_EQ(end, Sender::State::changed);
}

TEST_F(SliceSender, OfAFileThatIsOverwrittenStops) {
  SocketPair pair;
  Sender sender = answer("HEAD", records(slice()));
  const std::string right = "HEAD" + this->right();
  Sender::State end{};
  const std::string received = send_all(sender, pair, end, [&] {
    support::write_file(files_->path(), std::string(text_.size(), '?'));
    const timespec times[] = {{1, 0}, {1, 0}};
    ::utimensat(AT_FDCWD, files_->path().c_str(), times, 0);
  });
  EXPECT_EQ(end, Sender::State::changed);
  EXPECT_LT(received.size(), right.size());
}

TEST_F(SliceSender, OfAFileThatIsReplacedSendsTheOldOne) {
  SocketPair pair;
  Sender sender = answer("HEAD", records(slice()));
  const std::string right = "HEAD" + this->right();
  Sender::State end{};
  EXPECT_EQ(send_all(sender, pair, end,
                     [&] {
                       support::write_file(directory_.path("new"), std::string(text_.size(), '?'));
                       std::filesystem::rename(directory_.path("new"), files_->path());
                     }),
            right);
  EXPECT_EQ(end, Sender::State::done);
}

TEST_F(SliceSender, WithWrongPlacesStops) {
  host_slice slice = this->slice();
  ++slice.length;
  SocketPair pair;
  Sender sender = answer("HEAD", records(slice));
  Sender::State end{};
  EXPECT_TRUE(("HEAD" + right()).starts_with(send_all(sender, pair, end)));
  EXPECT_EQ(end, Sender::State::changed);
}

TEST_F(SliceSender, FailsQuietlyWhenTheClientHasGone) {
  SocketPair pair;
  pair.hang_up();
  Sender sender = answer("HEAD", records(slice()));
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::failed);
}

/// TlsPair is a SocketPair whose ends have made a TLS session.
class TlsPair {
 public:
  TlsPair() {
    std::signal(SIGPIPE, SIG_IGN);
    support::write_certificate(directory_.path("cert"), directory_.path("key"));
    const rdmd::TlsContext context({directory_.path("cert"), directory_.path("key")});
    transport_.emplace(pair_.ours(), context.session(pair_.ours()));
    ::SSL_set_fd(client_.get(), pair_.theirs());
    ::SSL_set_connect_state(client_.get());
    for (int step = 0; step < 10 && (transport_->handshake() != 0 || ::SSL_do_handshake(client_.get()) != 1); ++step)
      ::SSL_do_handshake(client_.get());
  }
  rdmd::Transport &transport() { return *transport_; }
  /// receive_all returns everything that has arrived.
  std::string receive_all() {
    std::string all, block(16384, '\0');
    for (int got = 0; (got = ::SSL_read(client_.get(), block.data(), static_cast<int>(block.size()))) > 0;)
      all.append(block, 0, static_cast<std::size_t>(got));
    return all;
  }

 private:
  const support::TemporaryDirectory directory_;
  SocketPair pair_;
  std::optional<rdmd::Transport> transport_;
  const rdmd::SslContextPtr context_{::SSL_CTX_new(::TLS_client_method())};
  const rdmd::SslPtr client_{::SSL_new(context_.get())};
};

TEST(AnswerSender, SendsByTlsInRecordsOverAllPieces) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("file", "0123456789");
  TlsPair pair;
  ASSERT_TRUE(pair.transport().is_ready());
  const std::int64_t before = pair.transport().sent();
  Sender sender = answer("HEAD ", bytes("one "), stretch(path, 2, 5), bytes(" two"));
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::done);
  EXPECT_EQ(pair.receive_all(), "HEAD one 23456 two");
  EXPECT_EQ(sender.sent(), 18);
  // One record: its header of five bytes, the type of its contents and the tag of sixteen.
  EXPECT_EQ(pair.transport().sent() - before, 18 + 22);
}

TEST(AnswerSender, ContinuesARecordByTlsAfterAFullSocket) {
  const support::TemporaryDirectory directory;
  std::string text;
  for (int i = 0; text.size() < 1'000'000; ++i) text += std::to_string(i) + ' ';
  const std::string path = directory.write("file", text);
  TlsPair pair;
  Sender sender = answer("HEAD", bytes(text), bytes("short"), stretch(path, 1, 999'999), bytes(text));
  std::string received;
  bool was_unfinished = false;
  for (;;) {
    const Sender::State state = sender.send(pair.transport());
    was_unfinished = was_unfinished || pair.transport().is_unfinished();
    received += pair.receive_all();
    if (state == Sender::State::done) break;
    ASSERT_NE(state, Sender::State::failed);
  }
  EXPECT_TRUE(was_unfinished);
  EXPECT_EQ(received, "HEAD" + text + "short" + text.substr(1, 999'999) + text);
}

TEST_F(SliceSender, SendsRecordsByTls) {
  TlsPair pair;
  Sender sender = answer("HEAD", bytes("short"), records(slice()), bytes("end"), records(files_->slice(5, 1)));
  Sender::State end{};
  EXPECT_EQ(send_all(sender, pair, end), "HEADshort" + right() + "end" + support::bytes_of(files_->slice(5, 1)));
  EXPECT_EQ(end, Sender::State::done);
}

TEST_F(SliceSender, OfAFileThatIsCutStopsByTls) {
  TlsPair pair;
  Sender sender = answer("HEAD", records(slice()));
  const std::string right = "HEAD" + this->right();
  Sender::State end{};
  const std::string received =
      send_all(sender, pair, end, [&] { EXPECT_EQ(::truncate(files_->path().c_str(), 100'000), 0); });
  EXPECT_EQ(end, Sender::State::changed);
  EXPECT_TRUE(right.starts_with(received));
  EXPECT_LT(received.size(), right.size());
}

TEST(AnswerSender, FailsByTlsWhenAFileBecameShorterThanItsStretch) {
  const support::TemporaryDirectory directory;
  TlsPair pair;
  Sender sender = answer("H", stretch(directory.write("file", "short"), 0, 10));
  EXPECT_EQ(sender.send(pair.transport()), Sender::State::failed);
  EXPECT_EQ(pair.receive_all(), "Hshort");
}

}  // namespace
