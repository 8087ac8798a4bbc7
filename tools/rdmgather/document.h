// SPDX-License-Identifier: MIT
/// Reading a document and describing it.
#ifndef RDMGATHER_DOCUMENT_H
#define RDMGATHER_DOCUMENT_H

#include <string>

#include "qxapi/guard.h"
#include "tools/rdmgather/content_type.h"
#include "tools/rdmgather/listing.h"

namespace rdm::gather {

/// Document is an open document that was read to its end.
class Document {
 public:
  /// Document reads the file of an entry below a root. Throws a Failure whose text is the reason: it cannot be read,
  /// has become another kind of file or moved outside the root, or has changed since it was opened.
  Document(const Entry &entry, const std::string &root);

  const std::string &md5() const { return md5_; }
  /// print returns the print for later runs. It has the times 0 if the last change is so recent that another one may
  /// leave the same times.
  const Print &print() const { return print_; }
  /// description returns the SOIF text of the description. Throws a Failure if SOIF cannot hold it.
  std::string description(const std::string &url, const std::string &path, const ContentTypes &types) const;

 private:
  void open(const Entry &entry, const std::string &root);
  void read();

  HostFileGuard file_;
  Print print_;
  int64_t size_ = 0, modified_ = 0;  // time in seconds since 1970
  std::string head_;                 // first bytes
  std::string md5_;
};

}  // namespace rdm::gather

#endif
