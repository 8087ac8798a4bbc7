// SPDX-License-Identifier: MIT
/// Reads the header of the proxy in front of a connection.
#ifndef HOSTS_RDMD_FRONT_PROXY_HEADER_READER_H
#define HOSTS_RDMD_FRONT_PROXY_HEADER_READER_H

#include "hosts/rdmd/front/channel.h"
#include "hosts/rdmd/front/proxy_header.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// ProxyHeaderReader runs on the connection's strand.
class ProxyHeaderReader {
 public:
  class Owner {
   public:
    virtual void proxy_header_read(const ProxyHeader &header) = 0;
    /// proxy_header_bad is called if the header is malformed or late.
    virtual void proxy_header_bad() = 0;
    /// proxy_lost is called if the proxy has ended the connection.
    virtual void proxy_lost() = 0;

   protected:
    ~Owner() = default;
  };

  ProxyHeaderReader(Channel &channel, Owner &owner) : channel_(channel), owner_(owner) {}

  /// begin reads the header, within `limit`, and not a byte more: the bytes after it are the transport's. The
  /// connection may make way meanwhile.
  void begin(Duration limit);

 private:
  void await();
  void read();

  Channel &channel_;
  Owner &owner_;
};

}  // namespace rdm::rdmd

#endif
