// SPDX-License-Identifier: MIT
/// What the logs and the metrics say of the requests of a connection, one after another.
#ifndef HOSTS_RDMD_FRONT_REQUEST_RECORD_H
#define HOSTS_RDMD_FRONT_REQUEST_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/front/delivery.h"
#include "hosts/rdmd/front/metrics.h"

namespace rdm::rdmd {

/// RequestRecord is the entry of the current request in the access log. It is used on the connection's strand.
class RequestRecord {
 public:
  /// `connection` is the number of the connection, `client` the text of the current client.
  RequestRecord(std::uint64_t connection, const std::string &client) : connection_(connection), client_(client) {}

  /// begin begins the entry of a request with this line and these fields, and gives the request its identifier. Status
  /// 503 is logged if the server stops, or the client disconnects, before there is an answer.
  void begin(std::string line, std::string_view referer = {}, std::string_view agent = {});
  /// begin_unread begins the entry of a request whose head cannot be parsed, if none is open: it has the part of the
  /// first line that has arrived in `input`. Returns true if it has begun one.
  bool begin_unread(std::string_view input);
  /// is_open returns true if an entry has begun and has not been written.
  bool is_open() const { return is_open_; }

  /// entry returns the open entry, which gets its client and its identifier when it is finished.
  AccessEntry &entry() { return entry_; }
  /// close_by says why the connection is closed, if it is closed now.
  void close_by(ClosedBy closer) { closer_ = closer; }
  /// id returns the identifier of the current request, or of the last one.
  const std::string &id() const { return id_; }
  /// who returns what the error log says of client and request.
  std::string who() const;

  /// finish counts and writes the open entry, with the progress of the answer, if there is one. `keeps` says that the
  /// connection stays open after it.
  void finish(const std::optional<Delivery::Progress> &progress, bool keeps, Metrics &metrics, AccessLog &log);

 private:
  const std::uint64_t connection_;
  const std::string &client_;
  std::string id_;
  std::string text_;  // what the entry shows of the request, in one block of memory
  AccessEntry entry_;
  ClosedBy closer_ = ClosedBy::server;
  bool is_open_ = false;
};

}  // namespace rdm::rdmd

#endif
