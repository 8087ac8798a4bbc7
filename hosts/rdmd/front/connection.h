// SPDX-License-Identifier: MIT
/// One client connection: takes requests, passes them to the plug-in and answers them, one after another.
///
/// Unless stated otherwise, members run on the connection's strand. A request is read completely before it is queued
/// for a worker, and its answer is sent after the plug-in has returned. Nothing is read in between: further requests
/// wait in the kernel's socket buffer. If the client resets the connection meanwhile, the connection is closed. A
/// queued request whose client has closed the connection is not passed to the plug-in.
///
/// A waiting connection holds little memory: it has a read buffer only while there is something to read, and frees the
/// request once its answer is queued.
///
/// Its parts wait, read and send; the connection decides what follows:
///
///   ProxyHeaderReader -> Handshake -> RequestReader -> (a job) -> Delivery -> RequestReader, or Lingering
#ifndef HOSTS_RDMD_FRONT_CONNECTION_H
#define HOSTS_RDMD_FRONT_CONNECTION_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/service_call.h"
#include "hosts/rdmd/front/acknowledgement.h"
#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/front/client.h"
#include "hosts/rdmd/front/connection_client.h"
#include "hosts/rdmd/front/delivery.h"
#include "hosts/rdmd/front/handshake.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/job.h"
#include "hosts/rdmd/front/lingering.h"
#include "hosts/rdmd/front/proxy_header_reader.h"
#include "hosts/rdmd/front/request_head.h"
#include "hosts/rdmd/front/request_reader.h"
#include "hosts/rdmd/front/request_record.h"
#include "hosts/rdmd/front/request_target.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/log.h"

namespace rdm::rdmd {

class Server;

class Connection final : public std::enable_shared_from_this<Connection>,
                         private ProxyHeaderReader::Owner,
                         private Handshake::Owner,
                         private RequestReader::Owner,
                         private Delivery::Owner,
                         private Acknowledgement::Owner,
                         private Lingering::Owner {
 public:
  /// Serves the client of an accepted socket, by TLS if `tls` is not null.
  Connection(io::Socket socket, Server &server, const Client &client = {}, SslPtr tls = nullptr);
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection();

  /// start begins to serve requests. Call start or turn_away once, from any thread.
  void start();
  /// turn_away answers 503 without reading a request, for a client beyond a limit. `reason` is the trouble to log.
  void turn_away(Trouble reason);

  /// close_if_idle closes the connection if it waits for a request; after a second if it has had none yet, because a
  /// client that has just connected is about to send one. It may be called from any thread.
  void close_if_idle();
  /// make_way ends the connection, in favour of a new client, if it waits for a request or reads a head. A begun head
  /// is answered with 503 unless the connection is to be closed `at_once`. It may be called from any thread.
  void make_way(bool at_once);
  /// abort closes the connection at once. It may be called from any thread.
  void abort();

  /// roster_entry returns the entry that links the connection into the server's roster.
  Roster::Entry &roster_entry() { return channel_.entry(); }

 private:
  using State = ConnectionState;

  /* ---- Before the first request ---- */

  void proxy_header_read(const ProxyHeader &header) override;
  void proxy_header_bad() override;
  void proxy_lost() override { close(); }
  void begin();
  void refuse_for(Trouble reason);
  void handshake_failed(Handshake::Failure failure) override;

  /* ---- A request ---- */

  void next_request();
  void head_read(RequestHead head) override;
  void head_refused(const Refusal &refusal) override;
  void head_late() override;
  void route(Target target);
  void body_read(std::string body) override;
  void body_late() override;
  void body_lost() override;
  void input_ended() override { lingering_.input_ended(); }
  void begin_unread_entry();

  /* ---- Serving it ---- */

  void submit();
  JobPtr make_job();
  void deliver_or_close(Reply reply);
  void deliver(Reply reply);
  void deliver(hosts::ServiceAnswer answered);

  /* ---- Answering it ---- */

  void refuse(const Refusal &refusal);
  void fail(const std::string &reason);
  void answer_failure();
  void answer_text(int status, std::string_view text);
  void answer(const hosts::Head &head, std::vector<hosts::Piece> pieces);
  SpillBudget::Share open_share();
  void refuse_room();
  void release_request();
  void delivered() override;
  void delivery_failed() override;
  void delivery_spoilt() override;
  void end_record();
  void finish_record();

  /* ---- What follows an answer ---- */

  void acknowledged(io::Clock::time_point since) override;
  void client_reset() override { close(); }
  void client_too_slow(Trouble reason) override;
  void lingering_ended() override { close(); }
  bool expects_nothing();
  Duration first_request_time() const;
  void close();

  Server &server_;
  Channel channel_;
  ConnectionClient client_;
  Acknowledgement acknowledgement_;
  ProxyHeaderReader proxy_header_;
  Handshake handshake_;
  RequestReader reader_;
  Delivery delivery_;
  Lingering lingering_;
  RequestRecord record_;

  bool first_ = true;    // no request has been answered yet
  bool keep_ = false;    // keep the connection open after the current answer
  bool unread_ = false;  // the request has a body that has not been read

  // The current request.
  RequestHead head_;
  hosts::ServiceRequest request_;
};

}  // namespace rdm::rdmd

#endif
