// SPDX-License-Identifier: MIT
/// What the processes of the server say to each other: everything arrives as it was sent, and nothing else is accepted.

#include "hosts/rdmd/worker/protocol.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/master/control.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/pieces.h"
#include "support/slices.h"

using namespace rdm;
using namespace rdm::rdmd;

namespace {

using support::bytes;
using support::records;
using Fields = std::vector<std::pair<std::string, std::string>>;

Fields pairs(const std::vector<hosts::Field> &fields) {
  Fields result;
  for (const hosts::Field &field : fields) result.emplace_back(field.name, field.value);
  return result;
}

hosts::ServiceRequest request() {
  hosts::ServiceRequest request;
  request.client = {{"ip", "192.0.2.1"}};
  request.line = {{"method", "POST"}, {"uri", "/rdm/incoming"}, {"query", ""}};
  request.headers = {{"host", "h"}, {"x-empty", ""}, {"host", "again"}};
  request.variables = {{"request-id", "0123"}};
  request.body = std::string("body\0with zeros\xFF", 16);
  request.head_only = true;
  return request;
}

hosts::ServiceAnswer answer() {
  hosts::ServiceAnswer answer;
  answer.outcome = hosts::Outcome::answered;
  answer.labels = {"rd-request", "x-catalog://h:1/c", 7};
  answer.delimited = true;
  answer.head.status = 403;
  answer.head.reason = "No";
  answer.head.fields = {{"content-type", "text/plain"}, {"content-length", "10"}};
  answer.head.length = 10;
  return answer;
}

/// exchange sends an answer over a socket and returns it as it arrives, and the number of packets.
std::pair<hosts::ServiceAnswer, std::size_t> exchange(const hosts::ServiceAnswer &sent) {
  const PacketSockets sockets = make_packet_sockets();
  const std::vector<OutgoingPacket> packets = encode_answer(sent);
  AnswerReader reader;
  bool last = false;
  for (const OutgoingPacket &packet : packets) {
    EXPECT_FALSE(last);
    EXPECT_TRUE(send_packet(sockets.first.get(), packet.bytes, packet.files));
    last = reader.add(std::move(*receive_packet(sockets.second.get())));
  }
  EXPECT_TRUE(last);
  return {reader.take(), packets.size()};
}

TEST(WorkerProtocol, ARequestArrivesAsItWasSent) {
  const auto order = decode_order(encode_request(7, request()));
  ASSERT_TRUE(order);
  EXPECT_EQ(order->number, 7u);
  const hosts::ServiceRequest *const received = &order->request;
  EXPECT_EQ(pairs(received->client), (Fields{{"ip", "192.0.2.1"}}));
  EXPECT_EQ(pairs(received->line), (Fields{{"method", "POST"}, {"uri", "/rdm/incoming"}, {"query", ""}}));
  EXPECT_EQ(pairs(received->headers), (Fields{{"host", "h"}, {"x-empty", ""}, {"host", "again"}}));
  EXPECT_EQ(pairs(received->variables), (Fields{{"request-id", "0123"}}));
  EXPECT_EQ(received->body, request().body);
  EXPECT_TRUE(received->head_only);
}

TEST(WorkerProtocol, TheOrderToReopenLogsIsNoRequest) { EXPECT_FALSE(decode_order(encode_reopen())); }

TEST(WorkerProtocol, AnAnswerThatFailedArrivesWithTheReason) {
  hosts::ServiceAnswer broken;
  broken.outcome = hosts::Outcome::broken;
  broken.failure = ENOSPC;
  const auto [received, packets] = exchange(broken);
  EXPECT_EQ(received.outcome, hosts::Outcome::broken);
  EXPECT_EQ(received.failure, ENOSPC);
}

TEST(WorkerProtocol, AnAnswerWithoutABodyArrivesInOnePacket) {
  const auto [received, packets] = exchange(answer());
  EXPECT_EQ(packets, 1u);
  EXPECT_EQ(received.outcome, hosts::Outcome::answered);
  EXPECT_EQ(received.labels.type, "rd-request");
  EXPECT_EQ(received.labels.catalog, "x-catalog://h:1/c");
  EXPECT_EQ(received.labels.hits, 7);
  EXPECT_TRUE(received.delimited);
  EXPECT_EQ(received.head.status, 403);
  EXPECT_EQ(received.head.reason, "No");
  EXPECT_EQ(pairs(received.head.fields), (Fields{{"content-type", "text/plain"}, {"content-length", "10"}}));
  EXPECT_EQ(received.head.length, 10);
  EXPECT_TRUE(received.pieces.empty());
}

TEST(WorkerProtocol, WhatIsAbsentStaysAbsent) {
  const hosts::ServiceAnswer received = exchange({}).first;
  EXPECT_EQ(received.outcome, hosts::Outcome::silent);
  EXPECT_FALSE(received.head.length);
  EXPECT_FALSE(received.labels.hits);
}

TEST(WorkerProtocol, BytesBeyondAPacketArriveAsOnePiece) {
  hosts::ServiceAnswer sent = answer();
  const std::string text(inline_limit * 2 + 1, 'x');
  sent.pieces = {bytes(text), bytes("end")};
  const auto [received, packets] = exchange(sent);
  EXPECT_EQ(packets, 3u);
  ASSERT_EQ(received.pieces.size(), 1u);
  EXPECT_EQ(received.pieces[0].bytes, text + "end");
  EXPECT_EQ(received.pieces[0].length, static_cast<std::int64_t>(text.size()) + 3);
}

TEST(WorkerProtocol, FilesArriveWithTheirRanges) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("file", "0123456789");
  const auto open = [&] { return std::make_shared<const HostFileGuard>(::open(path.c_str(), O_RDONLY | O_CLOEXEC)); };
  hosts::ServiceAnswer sent = answer();
  const auto shared = open();
  sent.pieces = {bytes("a"), {"", shared, 2, 3}, bytes("b"), {"", shared, 0, 1}};
  for (std::size_t i = 0; i < packet_files + 1; ++i) sent.pieces.push_back({"", open(), 9, 1});
  const auto [received, packets] = exchange(sent);
  EXPECT_EQ(packets, 2u);
  std::string text;
  for (const hosts::Piece &piece : received.pieces) {
    char block[16];
    text +=
        piece.file
            ? std::string(block, static_cast<std::size_t>(::pread(
                                     piece.file->get(), block, static_cast<std::size_t>(piece.length), piece.offset)))
            : piece.bytes;
  }
  EXPECT_EQ(text, "a234b0" + std::string(packet_files + 1, '9'));
  EXPECT_EQ(received.pieces[1].file, received.pieces[3].file);
}

TEST(WorkerProtocol, SlicesArriveAsTheyWereSent) {
  const support::TemporaryDirectory directory;
  const support::SliceFiles files(directory.path("one"), "0123456789", {{5, 2, 0}, {1, 3, 0}, {9, 1, 0}});
  hosts::ServiceAnswer sent = answer();
  sent.pieces = {bytes("a"), records(files.slice(1, 2)), bytes("b"), records(files.slice(0, 1))};
  const auto [received, packets] = exchange(sent);
  EXPECT_EQ(packets, 1u);
  ASSERT_EQ(received.pieces.size(), 4u);
  EXPECT_EQ(received.pieces[0].bytes, "a");
  EXPECT_EQ(received.pieces[2].bytes, "b");
  EXPECT_EQ(received.pieces[1].length, 4);
  ASSERT_TRUE(received.pieces[1].records && received.pieces[3].records);
  const hosts::RecordSlice &slice = *received.pieces[1].records;
  EXPECT_EQ(support::bytes_of({slice.records->fd(), slice.places->fd(), slice.first, slice.count, slice.length}),
            "1239");
  EXPECT_EQ(slice.records, received.pieces[3].records->records) << "one descriptor for both";
  EXPECT_EQ(received.pieces[3].records->length, 2);
}

TEST(WorkerProtocol, SlicesOfManyFilesTakeSeveralPackets) {
  const support::TemporaryDirectory directory;
  std::vector<support::SliceFiles> files;
  hosts::ServiceAnswer sent = answer();
  for (std::size_t i = 0; i < packet_files / 2 + 1; ++i) {
    files.emplace_back(directory.path("file" + std::to_string(i)), std::to_string(100 + i),
                       std::vector<host_place>{{0, 3, 0}});
    sent.pieces.push_back(records(files.back().all()));
  }
  const auto [received, packets] = exchange(sent);
  EXPECT_EQ(packets, 2u);
  ASSERT_EQ(received.pieces.size(), files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    char block[3];
    EXPECT_EQ(hosts::RecordCursor(*received.pieces[i].records).read(block), 3);
    EXPECT_EQ(std::string(block, 3), std::to_string(100 + i));
  }
}

TEST(WorkerProtocol, AnImpossibleSliceIsRefused) {
  const support::TemporaryDirectory directory;
  const support::SliceFiles files(directory.path("file"), "0123456789", {{5, 2, 0}});
  const auto add = [&](const hosts::RecordSlice &slice, std::size_t descriptors) {
    hosts::ServiceAnswer sent = answer();
    sent.pieces = {{"", nullptr, 0, slice.length, slice}};
    Packet received{encode_answer(sent).front().bytes, {}};
    while (received.files.size() < descriptors) received.files.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    AnswerReader().add(std::move(received));
  };
  const hosts::RecordSlice right = *hosts::RecordSlice::of(files.all());
  EXPECT_NO_THROW(add(right, 2));
  EXPECT_THROW(add(right, 1), MalformedPacket);
  for (const auto &[count, length] : std::vector<std::pair<std::uint32_t, std::int64_t>>{
           {0, 2}, {3, 2}, {1, 0}, {1, -1}, {1, (INT64_C(1) << 40) + 1}}) {
    hosts::RecordSlice wrong = right;
    wrong.count = count;
    wrong.length = length;
    EXPECT_THROW(add(wrong, 2), MalformedPacket) << count << ' ' << length;
  }
}

TEST(WorkerProtocol, ReadinessAndControlMessagesArriveAsTheyWereSent) {
  const Readiness readiness = decode_readiness(encode(Readiness{"why", "/tmp", "/tmp/own"}));
  EXPECT_EQ(readiness.failure, "why");
  EXPECT_EQ(readiness.temporary_directory, "/tmp");
  EXPECT_EQ(readiness.own_directory, "/tmp/own");
  const ControlMessage message = decode_control(encode(ControlMessage{ControlMessage::Kind::ended, 3, -1, "how"}));
  EXPECT_EQ(message.kind, ControlMessage::Kind::ended);
  EXPECT_EQ(message.number, 3);
  EXPECT_EQ(message.generation, -1);
  EXPECT_EQ(message.text, "how");
}

TEST(WorkerProtocol, NoPartOfAPacketIsAccepted) {
  const std::string order = encode_request(7, request()), reply = encode_answer(answer()).front().bytes;
  for (std::size_t size = 0; size < order.size(); ++size)
    EXPECT_THROW(decode_order(order.substr(0, size)), MalformedPacket) << size;
  for (std::size_t size = 0; size < reply.size(); ++size)
    EXPECT_THROW(AnswerReader().add({reply.substr(0, size), {}}), MalformedPacket) << size;
  EXPECT_THROW(decode_order(order + "x"), MalformedPacket);
  EXPECT_THROW(AnswerReader().add({reply + "x", {}}), MalformedPacket);
}

TEST(WorkerProtocol, APieceOfAFileThatDidNotComeIsRefused) {
  hosts::ServiceAnswer sent = answer();
  sent.pieces = {{"", std::make_shared<const HostFileGuard>(::open("/dev/null", O_RDONLY | O_CLOEXEC)), 0, 1}};
  EXPECT_THROW(AnswerReader().add({encode_answer(sent).front().bytes, {}}), MalformedPacket);
}

TEST(WorkerProtocol, AnAnswerWithoutItsFilesIsBrokenAndTheNextOneIsWhole) {
  hosts::ServiceAnswer sent = answer();
  sent.pieces = {{"", std::make_shared<const HostFileGuard>(::open("/dev/null", O_RDONLY | O_CLOEXEC)), 0, 10},
                 bytes(std::string(2 * inline_limit, 'x'))};
  AnswerReader reader;
  const std::vector<OutgoingPacket> packets = encode_answer(sent);
  ASSERT_GT(packets.size(), 1u);
  for (const OutgoingPacket &packet : packets)
    EXPECT_EQ(reader.add({packet.bytes, {}, !packet.files.empty()}), &packet == &packets.back());
  const hosts::ServiceAnswer received = reader.take();
  EXPECT_EQ(received.outcome, hosts::Outcome::broken);
  EXPECT_EQ(received.failure, EMFILE);
  EXPECT_EQ(received.labels.type, "rd-request");
  EXPECT_TRUE(received.pieces.empty());
  const hosts::ServiceAnswer next = answer();
  EXPECT_TRUE(reader.add({encode_answer(next).at(0).bytes, {}}));
  EXPECT_EQ(reader.take().outcome, hosts::Outcome::answered);
}

TEST(WorkerProtocol, APieceOfAnImpossibleFileIsRefused) {
  const auto file = std::make_shared<const HostFileGuard>(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  for (const auto &[offset, length] : std::vector<std::pair<std::int64_t, std::int64_t>>{
           {-1, 1}, {1, -1}, {INT64_MAX, 1}, {1, INT64_MAX}, {(INT64_C(1) << 40) + 1, 1}}) {
    hosts::ServiceAnswer sent = answer();
    sent.pieces = {{"", file, offset, length}};
    const OutgoingPacket packet = encode_answer(sent).front();
    Packet received{packet.bytes, {}};
    received.files.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_THROW(AnswerReader().add(std::move(received)), MalformedPacket) << offset << ' ' << length;
  }
}

TEST(WorkerProtocol, TheEndOfTheOtherSideIsAnEmptyPacket) {
  PacketSockets sockets = make_packet_sockets();
  EXPECT_TRUE(send_packet(sockets.first.get(), "last"));
  sockets.first = HostFileGuard();
  EXPECT_EQ(receive_packet(sockets.second.get())->bytes, "last");
  EXPECT_EQ(receive_packet(sockets.second.get())->bytes, "");
  EXPECT_FALSE(send_packet(sockets.second.get(), "too late"));
  EXPECT_EQ(errno, EPIPE);
}

TEST(WorkerProtocol, ASocketThatDoesNotBlockSaysThatThereIsNoPacket) {
  const PacketSockets sockets = make_packet_sockets();
  ::fcntl(sockets.first.get(), F_SETFL, O_NONBLOCK);
  EXPECT_FALSE(receive_packet(sockets.first.get()));
}

TEST(WorkerProtocol, PacketsBeyondTheLimitAreNotSent) {
  const PacketSockets sockets = make_packet_sockets();
  EXPECT_FALSE(send_packet(sockets.first.get(), std::string(packet_limit + 1, 'x')));
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_FALSE(send_packet(sockets.first.get(), "x", std::vector<host_fd>(packet_files + 1, 0)));
  EXPECT_EQ(errno, EMSGSIZE);
}

}  // namespace
