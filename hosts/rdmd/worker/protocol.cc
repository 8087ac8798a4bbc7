// SPDX-License-Identifier: MIT
#include "hosts/rdmd/worker/protocol.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <utility>

namespace rdm::rdmd {
namespace {

enum class Order : unsigned char { request, reopen, count };

/// The largest offset or length in a file, and the most pieces of an answer.
constexpr std::int64_t position_limit = std::int64_t{1} << 40;
constexpr std::size_t piece_limit = 1 << 20;

constexpr int outcomes = static_cast<int>(hosts::Outcome::broken) + 1;

using SharedFile = std::shared_ptr<const HostFileGuard>;

/// Kind is the kind of a piece.
enum class Kind : unsigned char { bytes, file, records, count };

/// AnswerPackets distributes the pieces of an answer over packets.
class AnswerPackets {
 public:
  explicit AnswerPackets(const hosts::ServiceAnswer &answer) {
    writer_.number(static_cast<unsigned char>(answer.outcome));
    if (answer.outcome == hosts::Outcome::broken) writer_.number(answer.failure);
    write_labels(answer.labels);
    writer_.number(answer.delimited);
    write_head(answer.head);
    for (const hosts::Piece &piece : answer.pieces) add(piece);
  }

  std::vector<OutgoingPacket> finish() {
    close(true);
    return std::move(packets_);
  }

 private:
  void add(const hosts::Piece &piece) {
    if (piece.records) return add_records(*piece.records);
    piece.file ? add_file(piece) : add_bytes(piece.bytes);
  }

  void write_labels(const hosts::RequestLabels &labels) {
    writer_.text(labels.type);
    writer_.text(labels.catalog);
    writer_.number(labels.hits.has_value());
    writer_.number(std::int64_t{labels.hits.value_or(0)});
  }

  void write_head(const hosts::Head &head) {
    writer_.number(head.status);
    writer_.text(head.reason);
    writer_.fields(head.fields);
    writer_.number(head.length.has_value());
    writer_.number(std::int64_t{head.length.value_or(0)});
  }

  void add_bytes(std::string_view bytes) {
    while (!bytes.empty()) {
      if (room_ == 0) close(false);
      const std::string_view part = bytes.substr(0, room_);
      pieces_.number(Kind::bytes);
      pieces_.text(part);
      ++count_;
      room_ -= part.size();
      bytes.remove_prefix(part.size());
    }
  }

  void add_file(const hosts::Piece &piece) {
    make_room_for(1);
    pieces_.number(Kind::file);
    pieces_.number(index_of(piece.file->get()));
    pieces_.number(piece.offset);
    pieces_.number(piece.length);
    ++count_;
  }

  void add_records(const hosts::RecordSlice &records) {
    make_room_for(2);
    pieces_.number(Kind::records);
    pieces_.number(index_of(records.records->fd()));
    pieces_.number(index_of(records.places->fd()));
    pieces_.number(records.first);
    pieces_.number(records.count);
    pieces_.number(records.length);
    ++count_;
  }

  /// make_room_for closes a packet that cannot take so many more descriptors.
  void make_room_for(std::size_t files) {
    if (files_.size() + files > packet_files) close(false);
  }

  std::uint32_t index_of(host_fd file) {
    const auto known = std::find(files_.begin(), files_.end(), file);
    const auto index = static_cast<std::uint32_t>(known - files_.begin());
    if (known == files_.end()) files_.push_back(file);
    return index;
  }

  void close(bool last) {
    writer_.number(last);
    writer_.number(count_);
    std::string bytes = writer_.take();
    bytes.append(pieces_.bytes());
    packets_.push_back({std::move(bytes), std::exchange(files_, {})});
    if (last) return;
    writer_ = PacketWriter();
    pieces_ = PacketWriter();
    count_ = 0;
    room_ = inline_limit;
  }

  PacketWriter writer_, pieces_;  // of the packet under way
  std::vector<host_fd> files_;
  std::uint32_t count_ = 0;
  std::size_t room_ = inline_limit;
  std::vector<OutgoingPacket> packets_;
};

void read_request(PacketReader &reader, hosts::ServiceRequest &request) {
  request.client = reader.fields();
  request.line = reader.fields();
  request.headers = reader.fields();
  request.variables = reader.fields();
  request.body = reader.text();
  request.head_only = reader.boolean();
}

std::optional<std::int64_t> read_optional(PacketReader &reader) {
  const bool is_given = reader.boolean();
  const auto value = reader.number<std::int64_t>();
  return is_given ? std::optional(value) : std::nullopt;
}

hosts::RequestLabels read_labels(PacketReader &reader) {
  hosts::RequestLabels labels;
  labels.type = reader.text();
  labels.catalog = reader.text();
  labels.hits = read_optional(reader);
  return labels;
}

hosts::Head read_head(PacketReader &reader) {
  hosts::Head head;
  head.status = reader.number<int>();
  head.reason = reader.text();
  head.fields = reader.fields();
  head.length = read_optional(reader);
  return head;
}

hosts::ServiceAnswer read_answer(PacketReader &reader) {
  hosts::ServiceAnswer answer;
  answer.outcome = reader.choice<hosts::Outcome>(outcomes);
  if (answer.outcome == hosts::Outcome::broken) answer.failure = reader.number<int>();
  answer.labels = read_labels(reader);
  answer.delimited = reader.boolean();
  answer.head = read_head(reader);
  return answer;
}

/// is_position returns true for an offset or a length whose sums over all pieces of an answer cannot overflow.
bool is_position(std::int64_t value) { return value >= 0 && value <= position_limit; }

class PieceReader {
 public:
  PieceReader(PacketReader &reader, const std::vector<SharedFile> &files) : reader_(reader), files_(files) {}

  hosts::Piece read() {
    switch (reader_.choice<Kind>(static_cast<int>(Kind::count))) {
      case Kind::file:
        return read_file();
      case Kind::records:
        return read_records();
      default:
        return read_bytes();
    }
  }

 private:
  hosts::Piece read_bytes() {
    hosts::Piece piece;
    piece.bytes = reader_.text();
    piece.length = static_cast<std::int64_t>(piece.bytes.size());
    return piece;
  }

  hosts::Piece read_file() {
    hosts::Piece piece;
    piece.file = file();
    piece.offset = position();
    piece.length = position();
    return piece;
  }

  /// read_records checks no places: the sender checks each before it uses it.
  hosts::Piece read_records() {
    hosts::Piece piece;
    host_slice slice{};
    slice.records = file()->get();
    slice.places = file()->get();
    slice.first = reader_.number<std::uint32_t>();
    slice.count = reader_.number<std::uint32_t>();
    piece.length = slice.length = position();
    piece.records = hosts::RecordSlice::of(slice);
    if (!piece.records) throw MalformedPacket();
    return piece;
  }

  const SharedFile &file() {
    const auto index = reader_.number<std::uint32_t>();
    if (index >= files_.size()) throw MalformedPacket();
    return files_[index];
  }

  std::int64_t position() {
    const auto value = reader_.number<std::int64_t>();
    if (!is_position(value)) throw MalformedPacket();
    return value;
  }

  PacketReader &reader_;
  const std::vector<SharedFile> &files_;
};

/// append joins bytes that were split to fit into packets.
void append(std::vector<hosts::Piece> &pieces, hosts::Piece piece) {
  if (!piece.is_bytes() || pieces.empty() || !pieces.back().is_bytes()) return pieces.push_back(std::move(piece));
  pieces.back().bytes += piece.bytes;
  pieces.back().length += piece.length;
}

}  // namespace

std::string encode(const Readiness &readiness) {
  PacketWriter writer;
  writer.text(readiness.failure);
  writer.text(readiness.temporary_directory);
  writer.text(readiness.own_directory);
  return writer.bytes();
}

Readiness decode_readiness(std::string_view bytes) {
  PacketReader reader(bytes);
  Readiness readiness;
  readiness.failure = reader.text();
  readiness.temporary_directory = reader.text();
  readiness.own_directory = reader.text();
  reader.end();
  return readiness;
}

std::string encode_request(std::uint64_t number, const hosts::ServiceRequest &request) {
  PacketWriter writer;
  writer.number(Order::request);
  writer.number(number);
  writer.fields(request.client);
  writer.fields(request.line);
  writer.fields(request.headers);
  writer.fields(request.variables);
  writer.text(request.body);
  writer.number(request.head_only);
  return writer.take();
}

std::string encode_reopen() {
  PacketWriter writer;
  writer.number(Order::reopen);
  return writer.bytes();
}

std::optional<RequestOrder> decode_order(std::string_view bytes) {
  PacketReader reader(bytes);
  std::optional<RequestOrder> order;
  if (reader.choice<Order>(static_cast<int>(Order::count)) == Order::request) {
    order.emplace();
    order->number = reader.number<std::uint64_t>();
    read_request(reader, order->request);
  }
  reader.end();
  return order;
}

std::vector<OutgoingPacket> encode_answer(const hosts::ServiceAnswer &answer) { return AnswerPackets(answer).finish(); }

bool AnswerReader::add(Packet packet) {
  PacketReader reader(packet.bytes);
  if (!answer_) answer_ = read_answer(reader);
  const bool last = reader.boolean();
  lacks_files_ = lacks_files_ || packet.lacks_files;
  if (lacks_files_) return last;
  std::vector<SharedFile> files;
  for (HostFileGuard &file : packet.files) files.push_back(std::make_shared<const HostFileGuard>(std::move(file)));
  for (auto left = reader.number<std::uint32_t>(); left > 0; --left)
    append(answer_->pieces, PieceReader(reader, files).read());
  reader.end();
  if (answer_->pieces.size() > piece_limit) throw MalformedPacket();
  return last;
}

hosts::ServiceAnswer AnswerReader::take() {
  hosts::ServiceAnswer answer = std::move(*answer_);
  answer_.reset();
  if (!std::exchange(lacks_files_, false)) return answer;
  hosts::ServiceAnswer broken;
  broken.outcome = hosts::Outcome::broken;
  broken.failure = EMFILE;
  broken.labels = std::move(answer.labels);
  return broken;
}

}  // namespace rdm::rdmd
