// SPDX-License-Identifier: MIT
/// The descriptions that were received.
#ifndef TOOLS_RDM_RECEIVED_H
#define TOOLS_RDM_RECEIVED_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "catalog/object_view.h"
#include "catalog/os/file.h"
#include "tools/rdm/digest.h"

namespace rdm::client {

/// Received keeps descriptions in the order in which they came, their text in a scratch file. Of a URL, the latest
/// description counts. A description takes about 200 bytes of memory.
class Received {
 public:
  explicit Received(const std::string &beside) : texts_(beside) {}

  struct Entry {
    Digest key;      // digest of the URL
    Digest content;  // digest of the text
    time_t time;     // of the last change, in seconds since 1970; 0 if the description has none
    int64_t offset;
    uint32_t size;   // of the text
    bool is_latest;  // of its URL
  };
  /// add adds a description. Returns false if it is the same as the latest one of its URL, by number of bytes and
  /// digest.
  bool add(const catalog::ObjectView &object, const std::string &text);

  /// find returns the latest description of a URL by the URL's digest, or null. The pointer is valid until the next
  /// add.
  const Entry *find(const Digest &key) const;
  /// each visits the latest description of each URL, in the order in which they came.
  void each(const std::function<void(const Entry &entry)> &visit) const;
  std::string text(const Entry &entry) const;
  /// size returns the number of URLs.
  size_t size() const { return latest_.size(); }

 private:
  catalog::ScratchFile texts_;
  std::vector<Entry> entries_;
  std::unordered_map<Digest, size_t, DigestHash> latest_;  // positions in entries_
};

}  // namespace rdm::client

#endif
